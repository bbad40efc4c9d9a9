// Whether a real camera can be asked for anything just now.
#pragma once

#include "background.h"

#include "devicebase.h"

#include <atomic>
#include <functional>
#include <memory>

// Whether a camera answers. A register access to a dead GigE Vision camera takes seconds, and its loss is known only
// after several more of them, so one that had no answer stands for all until the camera is heard of again.
class Reachability final : public AccessGate
{
public:
    // Whether the camera has stopped answering, and who is told of a hurry; both may be empty, and do not wait.
    explicit Reachability(std::function<bool()> isSilent = {}, std::function<void(bool)> hurry = {});
    std::int32_t Enter() override;
    void Leave() override;
    void Hurry(bool begins) override;
    // From now on every access is refused.
    void SetLost();
    bool IsLost() const;
    // Refused until the job is over, which waits for the camera. With the device's lock held.
    void SetClosing(std::shared_ptr<BackgroundJob const> job);

private:
    std::function<bool()> const m_isSilent;
    std::function<void(bool)> const m_hurry;
    std::atomic<bool> m_lost{false};
    std::shared_ptr<BackgroundJob const> m_closing; // guarded by the device's lock
};

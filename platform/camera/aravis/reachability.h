// Whether a real camera can be asked for anything just now.
#pragma once

#include "background.h"

#include "devicebase.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

// Whether a camera answers. A register access to a dead GigE Vision camera takes seconds, and Aravis reports the loss
// only after several of them, so after one slow access the camera is asked for a sign of life before each further one.
class Reachability final : public AccessGate
{
public:
    explicit Reachability(std::string address); // "" where asking is not possible
    std::int32_t Enter() override;
    void Leave() override;
    // From now on every access is refused.
    void SetLost();
    bool IsLost() const;
    // Refused until the job is over, which waits for the camera. With the device's lock held.
    void SetClosing(std::shared_ptr<BackgroundJob const> job);

private:
    std::string const m_address;
    std::atomic<bool> m_lost{false};

    // Guarded by the device's lock.
    bool m_suspect = false;
    std::shared_ptr<BackgroundJob const> m_closing;
    std::chrono::steady_clock::time_point m_entered;
};

// Looks for one camera again and again, on a thread of its own: for that very one, by maker, model and serial number.
//
// GUI thread, but for the looking itself. The thread is made with the first look, and joined with the object, which may
// take as long as a search: about a second.
#pragma once

#include <QObject>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace TovCam {
class DeviceInfo;
class System;
} // namespace TovCam

class CameraLookout : public QObject
{
    Q_OBJECT
public:
    // From the beginning of a look to that of the next one, unless it takes longer. Tests change it.
    static std::chrono::milliseconds s_period;

    struct Camera
    {
        explicit Camera(TovCam::DeviceInfo *info);
        std::string vendor, model, serial; // never empty where it can be looked for
        bool operator==(Camera const &) const = default;
    };

    ~CameraLookout() override;

    // Until End. The system outlives the object.
    void Begin(TovCam::System *system, Camera const &camera);
    // A search under way goes to its end, and is not told.
    void End();

signals:
    // After each look. Null: it is not there. `free`: it can be opened, as far as is known.
    void looked(TovCam::DeviceInfo *camera, bool free);

private:
    struct Order
    {
        TovCam::System *system;
        Camera camera;
        std::uint64_t number;
    };

    void Run();
    TovCam::DeviceInfo *Look(Order const &order);
    bool IsOver(Order const &order);

    std::mutex m_mutex; // guards the next three; alone
    std::optional<Order> m_order;
    std::uint64_t m_number = 0; // of orders; written on the GUI thread, which reads it without the lock
    bool m_quit = false;
    std::condition_variable m_wake;
    std::thread m_thread;
};

#include "cameralookout.h"

#include "tovcamera.h"

#include <system_error>

namespace {

constexpr std::uint32_t EveryKind = 255;

} // namespace

// A search takes about a second, so one follows the other: a camera is found a second and a half after its return at
// the latest, whatever its address.
std::chrono::milliseconds CameraLookout::s_period{1000};

CameraLookout::Camera::Camera(TovCam::DeviceInfo *info)
    : vendor(info->GetVendorName()),
      model(info->GetModelName()),
      serial(info->GetSerialNumber())
{
}

CameraLookout::~CameraLookout()
{
    {
        std::lock_guard const lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_one();
    if (m_thread.joinable())
        m_thread.join();
}

void CameraLookout::Begin(TovCam::System *system, Camera const &camera)
{
    {
        std::lock_guard const lock(m_mutex);
        m_order = Order{system, camera, ++m_number};
    }
    m_wake.notify_one();
    if (m_thread.joinable())
        return;
    try {
        m_thread = std::thread(&CameraLookout::Run, this);
    } catch (std::system_error const &) { // no thread is to be had: nothing is looked for this time
        End();
    }
}

void CameraLookout::End()
{
    {
        std::lock_guard const lock(m_mutex);
        m_order.reset();
        ++m_number;
    }
    m_wake.notify_one();
}

void CameraLookout::Run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_quit || m_order; });
        if (m_quit || !m_order)
            return;
        Order const order = *m_order;
        lock.unlock();
        auto const next = std::chrono::steady_clock::now() + s_period;
        TovCam::DeviceInfo *const camera = Look(order);
        bool const free = camera && camera->GetAccessStatus() != TovCam::DeviceInfo::AccessBusy &&
                          !camera->GetNetworkPlace().isForeign;
        QMetaObject::invokeMethod(
            this,
            [this, camera, free, number = order.number] {
                if (number == m_number)
                    emit looked(camera, free);
            },
            Qt::QueuedConnection);
        lock.lock();
        m_wake.wait_until(lock, next, [&] { return m_quit || m_number != order.number; });
    }
}

// Of several, which is the camera on two ways, one that is free comes first.
TovCam::DeviceInfo *CameraLookout::Look(Order const &order)
{
    order.system->UpdateDeviceList();
    TovCam::ObjectList *const interfaces = IsOver(order) ? nullptr : order.system->GetInterfaceList(EveryKind);
    TovCam::DeviceInfo *found = nullptr;
    for (auto *interface = interfaces ? interfaces->GetFirst() : nullptr; interface;
         interface = interfaces->GetNext()) {
        for (std::uint32_t i = 0, count = interface->GetDeviceCount(); i < count; ++i) {
            TovCam::DeviceInfo *const info = interface->GetDeviceInfoByIndex(i);
            if (info && Camera(info) == order.camera &&
                (!found || found->GetAccessStatus() == TovCam::DeviceInfo::AccessBusy))
                found = info;
        }
    }
    return found;
}

bool CameraLookout::IsOver(Order const &order)
{
    std::lock_guard const lock(m_mutex);
    return m_quit || m_number != order.number;
}

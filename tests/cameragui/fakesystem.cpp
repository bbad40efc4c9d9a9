#include "fakesystem.h"

FakeSystem *g_fakeSystem = nullptr;

__attribute__((visibility("default"))) TovCam::System *TovCam_GetSystem()
{
    g_fakeSystem->AddReference();
    return g_fakeSystem;
}

void FakeSystem::SetCameras(std::vector<FakeCamera *> onGigE, std::vector<FakeCamera *> onUsb)
{
    std::lock_guard const lock(m_mutex);
    m_nextGigE = std::move(onGigE);
    m_nextUsb = std::move(onUsb);
}

void FakeSystem::SetReachable(std::string const &address, FakeCamera *camera)
{
    std::lock_guard const lock(m_mutex);
    m_address = address;
    m_reachable = camera;
}

void FakeSystem::SetResult(std::int32_t result)
{
    std::lock_guard const lock(m_mutex);
    m_result = result;
}

void FakeSystem::Hold()
{
    std::lock_guard const lock(m_mutex);
    m_held = true;
}

void FakeSystem::Proceed()
{
    std::lock_guard const lock(m_mutex);
    m_held = false;
    m_changed.notify_all();
}

bool FakeSystem::IsBlocked()
{
    std::lock_guard const lock(m_mutex);
    return m_blocked;
}

std::int32_t FakeSystem::UpdateDeviceList()
{
    if (++m_running > 1)
        m_overlapped = true;
    std::unique_lock lock(m_mutex);
    m_blocked = m_held;
    m_changed.wait(lock, [this] { return !m_held; });
    m_blocked = false;
    gige.cameras = m_nextGigE;
    usb.cameras = m_nextUsb;
    --m_running;
    ++m_searches;
    return m_result;
}

TovCam::DeviceInfo *FakeSystem::FindDeviceByAddress(char const *address, std::int32_t *error)
{
    std::lock_guard const lock(m_mutex);
    bool const found = m_reachable && m_address == address;
    *error = found ? TOV_CAM_ERR_OK : TOV_CAM_ERR_NO_DEVICE;
    if (!found)
        return nullptr;
    m_nextGigE.push_back(m_reachable);
    gige.cameras.push_back(m_reachable);
    return m_reachable;
}

TovCam::Interface *FakeSystem::GetFirst()
{
    m_position = 1;
    return &gige;
}

TovCam::Interface *FakeSystem::GetNext()
{
    return ++m_position == 2 ? &usb : nullptr;
}

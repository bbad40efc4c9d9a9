#include "simdevice.h"

#include "genicam/xmlcheck.h"
#include "registerdevice.h"
#include "simcamera.h"

namespace {

class SimDevice final : public DeviceBase
{
public:
    SimDevice(SimModel const &model, DeviceInfoImpl *info)
        : DeviceBase(NewRegisterDevice(model.xml), info),
          m_stream(model, m_events, [this](SimFormat &f) { return AskFormat(f); }),
          m_camera(model, m_stream, m_events)
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        m_camera.SetGiveUpWatch(m_giveUp.get());
        m_nodes.SetGate(&m_gate);
        SetRegisterPort(m_device, &m_camera);
        if (m_nodes.GetStatus() == TOV_CAM_ERR_OK)
            m_camera.SetNodeMap(arv_device_get_genicam(m_device));
    }

    void Release() override
    {
        DeviceInfoImpl *const info = m_info;
        SystemHold const hold; // keeps the information until it is updated
        DeviceBase::Release();
        // Each opening has a camera of its own, so the next one need not wait for a slow access of this one.
        info->access.store(TovCam::DeviceInfo::AccessFree);
    }

    TovCam::Stream *GetStreamByIndex(std::uint32_t index) override
    {
        return index == 0 ? &m_stream : nullptr;
    }

protected:
    bool CanServe(std::uint32_t) const override
    {
        return true;
    }
    void Close() override
    {
        SetRegisterPort(m_device, nullptr);
        m_stream.Shutdown();
    }

private:
    ~SimDevice() override = default;

    std::int32_t AskFormat(SimFormat &format)
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        return m_camera.GetFormat(format);
    }

    // Refuses what nobody waits for any more.
    struct Gate final : AccessGate
    {
        explicit Gate(GiveUpWatch const &watch) : m_giveUp(watch)
        {
        }
        std::int32_t Enter() override
        {
            return m_giveUp.IsOver() ? TOV_CAM_ERR_NO_DEVICE : TOV_CAM_ERR_OK;
        }
        void Leave() override
        {
        }
        GiveUpWatch const &m_giveUp;
    };

    Gate m_gate{*m_giveUp};
    SimStream m_stream;
    SimCamera m_camera;
};

} // namespace

TovCam::Device *OpenSimDevice(SimModel const &model, DeviceInfoImpl *info, std::int32_t *error)
{
    // One host at a time, as with the real transports.
    TovCam::DeviceInfo::AccessStatus expected = TovCam::DeviceInfo::AccessFree;
    if (!info->access.compare_exchange_strong(expected, TovCam::DeviceInfo::AccessBusy)) {
        info->SetOpenFailure({TovCam::OpenRefusal::InUse, true, {}, {}});
        *error = TOV_CAM_ERR_INVALID_STATE;
        return nullptr;
    }
    TovCam::OpenFailure failure;
    auto *const device = new SimDevice(model, info);
    if (!device->GetCameraParameters(nullptr)) {
        failure.refusal = TovCam::OpenRefusal::Description;
        CheckGenicamXml(model.xml.data(), model.xml.size(), &failure.reason);
    }
    info->SetOpenFailure(std::move(failure));
    return device;
}

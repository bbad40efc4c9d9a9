#include "simdevice.h"

#include "aravisreleases.h"
#include "simcamera.h"

// ---- The ArvDevice -----------------------------------------------------------------------------------------------

// Outlives the camera where someone still holds a reference; accesses fail then.
struct SimArvDevice
{
    ArvDevice parent;
    SimCamera *camera;
    SimModel const *model;
    ArvGc *genicam;
};

struct SimArvDeviceClass
{
    ArvDeviceClass parent;
};

G_DEFINE_TYPE(SimArvDevice, sim_arv_device, ARV_TYPE_DEVICE)

static SimArvDevice *Self(ArvDevice *device)
{
    return reinterpret_cast<SimArvDevice *>(device);
}

static SimCamera *CameraOf(ArvDevice *device, GError **error)
{
    SimCamera *const camera = Self(device)->camera;
    if (!camera)
        g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_NOT_CONNECTED, "The camera is closed");
    return camera;
}

static char const *sim_arv_device_get_genicam_xml(ArvDevice *device, size_t *size)
{
    std::string_view const xml = Self(device)->model->xml;
    if (size)
        *size = xml.size();
    return xml.data();
}

static ArvGc *sim_arv_device_get_genicam(ArvDevice *device)
{
    SimArvDevice *const self = Self(device);
    // Made at the first call, by which time the description has been checked.
    if (!self->genicam)
        self->genicam = arv_gc_new(device, self->model->xml.data(), self->model->xml.size());
    return self->genicam;
}

static gboolean sim_arv_device_read_memory(ArvDevice *device, guint64 address, guint32 size, void *buffer,
                                           GError **error)
{
    SimCamera *const camera = CameraOf(device, error);
    return camera && camera->Read(address, size, static_cast<std::uint8_t *>(buffer), error);
}

static gboolean sim_arv_device_write_memory(ArvDevice *device, guint64 address, guint32 size, ArvWrittenData buffer,
                                            GError **error)
{
    SimCamera *const camera = CameraOf(device, error);
    return camera && camera->Write(address, size, static_cast<std::uint8_t const *>(buffer), error);
}

static gboolean sim_arv_device_read_register(ArvDevice *device, guint64 address, guint32 *value, GError **error)
{
    SimCamera *const camera = CameraOf(device, error);
    guint32 raw = 0;
    if (!camera || !camera->Read(address, sizeof raw, reinterpret_cast<std::uint8_t *>(&raw), error))
        return FALSE;
    *value = camera->IsBigEndian() ? GUINT32_FROM_BE(raw) : GUINT32_FROM_LE(raw);
    return TRUE;
}

static gboolean sim_arv_device_write_register(ArvDevice *device, guint64 address, guint32 value, GError **error)
{
    SimCamera *const camera = CameraOf(device, error);
    guint32 const raw = camera && camera->IsBigEndian() ? GUINT32_TO_BE(value) : GUINT32_TO_LE(value);
    return camera && camera->Write(address, sizeof raw, reinterpret_cast<std::uint8_t const *>(&raw), error);
}

static void sim_arv_device_finalize(GObject *object)
{
    g_clear_object(&reinterpret_cast<SimArvDevice *>(object)->genicam);
    G_OBJECT_CLASS(sim_arv_device_parent_class)->finalize(object);
}

static void sim_arv_device_class_init(SimArvDeviceClass *type)
{
    G_OBJECT_CLASS(type)->finalize = sim_arv_device_finalize;
    type->parent.get_genicam_xml = sim_arv_device_get_genicam_xml;
    type->parent.get_genicam = sim_arv_device_get_genicam;
    type->parent.read_memory = sim_arv_device_read_memory;
    type->parent.write_memory = sim_arv_device_write_memory;
    type->parent.read_register = sim_arv_device_read_register;
    type->parent.write_register = sim_arv_device_write_register;
}

static void sim_arv_device_init(SimArvDevice *)
{
}

// ---- The device --------------------------------------------------------------------------------------------------

namespace {

ArvDevice *NewArvDevice(SimModel const &model)
{
    gpointer const object = g_object_new(sim_arv_device_get_type(), nullptr);
    static_cast<SimArvDevice *>(object)->model = &model;
    return static_cast<ArvDevice *>(object);
}

class SimDevice final : public DeviceBase
{
public:
    SimDevice(SimModel const &model, DeviceInfoImpl *info)
        : DeviceBase(NewArvDevice(model), info),
          m_stream(model, m_events, [this](SimFormat &f) { return AskFormat(f); }),
          m_camera(model, m_stream, m_events)
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        Self(m_device)->camera = &m_camera;
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
        Self(m_device)->camera = nullptr;
        m_stream.Shutdown();
    }

private:
    ~SimDevice() override = default;

    std::int32_t AskFormat(SimFormat &format)
    {
        std::lock_guard<std::recursive_mutex> lock(m_access);
        return m_camera.GetFormat(format);
    }

    SimStream m_stream;
    SimCamera m_camera;
};

} // namespace

TovCam::Device *OpenSimDevice(SimModel const &model, DeviceInfoImpl *info, std::int32_t *error)
{
    // One host at a time, as with the real transports.
    TovCam::DeviceInfo::AccessStatus expected = TovCam::DeviceInfo::AccessFree;
    if (!info->access.compare_exchange_strong(expected, TovCam::DeviceInfo::AccessBusy)) {
        *error = TOV_CAM_ERR_INVALID_STATE;
        return nullptr;
    }
    return new SimDevice(model, info);
}

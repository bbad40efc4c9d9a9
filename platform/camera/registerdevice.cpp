#include "registerdevice.h"

#include "aravisreleases.h"
#include "genicam/formulaguard.h"
#include "tovcamera.h"

bool RegisterPort::ReadRegister(std::uint64_t address, std::uint32_t &value, GError **error)
{
    guint32 raw = 0;
    if (!Read(address, sizeof raw, reinterpret_cast<std::uint8_t *>(&raw), error))
        return false;
    value = IsBigEndian() ? GUINT32_FROM_BE(raw) : GUINT32_FROM_LE(raw);
    return true;
}

bool RegisterPort::WriteRegister(std::uint64_t address, std::uint32_t value, GError **error)
{
    guint32 const raw = IsBigEndian() ? GUINT32_TO_BE(value) : GUINT32_TO_LE(value);
    return Write(address, sizeof raw, reinterpret_cast<std::uint8_t const *>(&raw), error);
}

// Outlives the port where someone still holds a reference; accesses fail then.
struct TovRegisterDevice
{
    ArvDevice parent;
    RegisterPort *port;
    std::string_view xml;
    ArvGc *genicam;
};

struct TovRegisterDeviceClass
{
    ArvDeviceClass parent;
};

G_DEFINE_TYPE(TovRegisterDevice, tov_register_device, ARV_TYPE_DEVICE)

static TovRegisterDevice *Self(ArvDevice *device)
{
    return reinterpret_cast<TovRegisterDevice *>(device);
}

static RegisterPort *PortOf(ArvDevice *device, GError **error)
{
    RegisterPort *const port = Self(device)->port;
    if (!port)
        g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_NOT_CONNECTED, "The camera is closed");
    return port;
}

static char const *tov_register_device_get_genicam_xml(ArvDevice *device, size_t *size)
{
    std::string_view const xml = Self(device)->xml;
    if (size)
        *size = xml.size();
    return xml.data();
}

static ArvGc *tov_register_device_get_genicam(ArvDevice *device)
{
    TovRegisterDevice *const self = Self(device);
    // Made at the first call, by which time the description has been checked. Null for one that cannot be guarded.
    std::string guarded;
    if (!self->genicam && GuardFormulas(self->xml, &guarded) == TOV_CAM_ERR_OK)
        self->genicam = arv_gc_new(device, guarded.data(), guarded.size());
    return self->genicam;
}

static gboolean tov_register_device_read_memory(ArvDevice *device, guint64 address, guint32 size, void *buffer,
                                                GError **error)
{
    RegisterPort *const port = PortOf(device, error);
    return port && port->Read(address, size, static_cast<std::uint8_t *>(buffer), error);
}

static gboolean tov_register_device_write_memory(ArvDevice *device, guint64 address, guint32 size,
                                                 ArvWrittenData buffer, GError **error)
{
    RegisterPort *const port = PortOf(device, error);
    return port && port->Write(address, size, static_cast<std::uint8_t const *>(buffer), error);
}

static gboolean tov_register_device_read_register(ArvDevice *device, guint64 address, guint32 *value, GError **error)
{
    RegisterPort *const port = PortOf(device, error);
    return port && port->ReadRegister(address, *value, error);
}

static gboolean tov_register_device_write_register(ArvDevice *device, guint64 address, guint32 value, GError **error)
{
    RegisterPort *const port = PortOf(device, error);
    return port && port->WriteRegister(address, value, error);
}

static void tov_register_device_finalize(GObject *object)
{
    g_clear_object(&reinterpret_cast<TovRegisterDevice *>(object)->genicam);
    G_OBJECT_CLASS(tov_register_device_parent_class)->finalize(object);
}

static void tov_register_device_class_init(TovRegisterDeviceClass *type)
{
    G_OBJECT_CLASS(type)->finalize = tov_register_device_finalize;
    type->parent.get_genicam_xml = tov_register_device_get_genicam_xml;
    type->parent.get_genicam = tov_register_device_get_genicam;
    type->parent.read_memory = tov_register_device_read_memory;
    type->parent.write_memory = tov_register_device_write_memory;
    type->parent.read_register = tov_register_device_read_register;
    type->parent.write_register = tov_register_device_write_register;
}

static void tov_register_device_init(TovRegisterDevice *)
{
}

ArvDevice *NewRegisterDevice(std::string_view xml)
{
    gpointer const object = g_object_new(tov_register_device_get_type(), nullptr);
    static_cast<TovRegisterDevice *>(object)->xml = xml;
    return static_cast<ArvDevice *>(object);
}

bool HasGuardedFormulas(ArvDevice *device)
{
    return G_TYPE_CHECK_INSTANCE_TYPE(device, tov_register_device_get_type());
}

void SetRegisterPort(ArvDevice *device, RegisterPort *port)
{
    Self(device)->port = port;
}

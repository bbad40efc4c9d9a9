#include "memorycamera.h"

#include "aravisreleases.h"

#include <algorithm>

struct MemoryDevice
{
    ArvDevice parent;
    std::string const *description;
    MemoryCamera *camera;
    ArvGc *genicam;
};

struct MemoryDeviceClass
{
    ArvDeviceClass parent;
};

G_DEFINE_TYPE(MemoryDevice, memory_device, ARV_TYPE_DEVICE)

static MemoryDevice *Self(ArvDevice *device)
{
    return reinterpret_cast<MemoryDevice *>(device);
}

static char const *GetXml(ArvDevice *device, size_t *size)
{
    *size = Self(device)->description->size();
    return Self(device)->description->data();
}

static ArvGc *GetGenicam(ArvDevice *device)
{
    MemoryDevice *const self = Self(device);
    if (!self->genicam)
        self->genicam = arv_gc_new(device, self->description->data(), self->description->size());
    return self->genicam;
}

static std::uint8_t *Find(ArvDevice *device, guint64 address, guint32 size, GError **error)
{
    std::vector<std::uint8_t> &memory = Self(device)->camera->memory;
    ++Self(device)->camera->accesses;
    if (size <= memory.size() && address <= memory.size() - size)
        return memory.data() + address;
    g_set_error_literal(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS, "No such register");
    return nullptr;
}

static gboolean ReadMemory(ArvDevice *device, guint64 address, guint32 size, void *buffer, GError **error)
{
    std::uint8_t *const bytes = Find(device, address, size, error);
    if (bytes && Self(device)->camera->isUnsteady) {
        for (std::uint8_t *byte = bytes; byte != bytes + size; ++byte)
            *byte = static_cast<std::uint8_t>(~*byte);
    }
    if (bytes)
        std::copy_n(bytes, size, static_cast<std::uint8_t *>(buffer));
    return bytes != nullptr;
}

static gboolean WriteMemory(ArvDevice *device, guint64 address, guint32 size, ArvWrittenData buffer, GError **error)
{
    std::uint8_t *const bytes = Find(device, address, size, error);
    if (bytes)
        std::copy_n(static_cast<std::uint8_t const *>(buffer), size, bytes);
    return bytes != nullptr;
}

static gboolean ReadRegister(ArvDevice *device, guint64 address, guint32 *value, GError **error)
{
    return ReadMemory(device, address, sizeof *value, value, error);
}

static gboolean WriteRegister(ArvDevice *device, guint64 address, guint32 value, GError **error)
{
    return WriteMemory(device, address, sizeof value, &value, error);
}

static void memory_device_finalize(GObject *object)
{
    g_clear_object(&reinterpret_cast<MemoryDevice *>(object)->genicam);
    G_OBJECT_CLASS(memory_device_parent_class)->finalize(object);
}

static void memory_device_class_init(MemoryDeviceClass *type)
{
    G_OBJECT_CLASS(type)->finalize = memory_device_finalize;
    type->parent.get_genicam_xml = GetXml;
    type->parent.get_genicam = GetGenicam;
    type->parent.read_memory = ReadMemory;
    type->parent.write_memory = WriteMemory;
    type->parent.read_register = ReadRegister;
    type->parent.write_register = WriteRegister;
}

static void memory_device_init(MemoryDevice *)
{
}

// Made once: it would be half of the time of a short run.
static std::vector<std::uint8_t> const &Pattern()
{
    static std::vector<std::uint8_t> const s_pattern = [] {
        std::vector<std::uint8_t> bytes(0x4000);
        for (std::size_t i = 3; i < bytes.size(); i += 16)
            bytes[i] = static_cast<std::uint8_t>(i / 16);
        return bytes;
    }();
    return s_pattern;
}

MemoryCamera::MemoryCamera(std::string description) : memory(Pattern()), m_description(std::move(description))
{
    // ArvGc warns about what it cannot use, which is nearly everything here.
    static bool const silent = g_log_set_default_handler([](auto...) {}, nullptr) != nullptr;
    (void)silent;
    gpointer const object = g_object_new(memory_device_get_type(), nullptr);
    m_device = static_cast<ArvDevice *>(object);
    Self(m_device)->description = &m_description;
    Self(m_device)->camera = this;
    m_nodes = std::make_unique<NodeMap>(m_device, m_mutex);
}

MemoryCamera::~MemoryCamera()
{
    m_nodes.reset();
    g_object_unref(m_device);
}

NodeMap &MemoryCamera::GetNodes()
{
    return *m_nodes;
}

ArvDevice *MemoryCamera::GetDevice()
{
    return m_device;
}

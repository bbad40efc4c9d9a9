#include "nodemap.h"

#include "xmlcheck.h"

#include <cmath>
#include <set>

std::int32_t StatusFromError(GError const *error)
{
    if (!error)
        return TOV_CAM_ERR_OK;
    if (error->domain == ARV_GC_ERROR) {
        switch (static_cast<ArvGcError>(error->code)) {
        case ARV_GC_ERROR_OUT_OF_RANGE:
            return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
        case ARV_GC_ERROR_READ_ONLY:
            return TOV_CAM_ERR_GENICAM_ACCESS;
        case ARV_GC_ERROR_NODE_NOT_FOUND:
            return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
        case ARV_GC_ERROR_INVALID_SYNTAX:
            return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
        case ARV_GC_ERROR_SET_FROM_STRING_UNDEFINED:
        case ARV_GC_ERROR_GET_AS_STRING_UNDEFINED:
            return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
        case ARV_GC_ERROR_NO_DEVICE_SET:
            return TOV_CAM_ERR_NO_DEVICE;
        case ARV_GC_ERROR_PROPERTY_NOT_DEFINED:
        case ARV_GC_ERROR_PVALUE_NOT_DEFINED:
        case ARV_GC_ERROR_INVALID_PVALUE:
        case ARV_GC_ERROR_EMPTY_ENUMERATION:
        case ARV_GC_ERROR_NO_EVENT_IMPLEMENTATION:
        case ARV_GC_ERROR_INVALID_LENGTH:
        case ARV_GC_ERROR_INVALID_BIT_RANGE:
            return TOV_CAM_ERR_GENICAM_TREE;
        }
    } else if (error->domain == ARV_DEVICE_ERROR) {
        switch (static_cast<ArvDeviceError>(error->code)) {
        case ARV_DEVICE_ERROR_FEATURE_NOT_FOUND:
            return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        case ARV_DEVICE_ERROR_WRONG_FEATURE:
            return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
        case ARV_DEVICE_ERROR_NOT_CONNECTED:
        case ARV_DEVICE_ERROR_NOT_FOUND:
            return TOV_CAM_ERR_NO_DEVICE;
        case ARV_DEVICE_ERROR_GENICAM_NOT_FOUND:
            return TOV_CAM_ERR_GENICAM_TREE;
        case ARV_DEVICE_ERROR_NOT_CONTROLLER:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_WRITE_PROTECT:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_BUSY:
            return TOV_CAM_ERR_GENICAM_ACCESS;
        case ARV_DEVICE_ERROR_INVALID_PARAMETER:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_PARAMETER:
            return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
        default:
            break;
        }
    }
    return TOV_CAM_ERR_GENICAM_GENERIC;
}

namespace {

// A GError that is taken apart where it goes out of scope.
class ErrorSlot
{
public:
    ErrorSlot() = default;
    ErrorSlot(ErrorSlot const &) = delete;
    ErrorSlot &operator=(ErrorSlot const &) = delete;
    ~ErrorSlot()
    {
        g_clear_error(&m_error);
    }
    operator GError **()
    {
        return &m_error;
    }
    std::int32_t Status() const
    {
        return StatusFromError(m_error);
    }

private:
    GError *m_error = nullptr;
};

void Store(std::int32_t *error, std::int32_t status)
{
    if (error)
        *error = status;
}

enum class NodeType { Other, Integer, Float, String, Enumeration, Boolean, Command };

// Enumerations and booleans answer as integers too, so they come first.
NodeType TypeOf(ArvGcNode *node)
{
    if (ARV_IS_GC_ENUMERATION(node))
        return NodeType::Enumeration;
    if (ARV_IS_GC_BOOLEAN(node))
        return NodeType::Boolean;
    if (ARV_IS_GC_COMMAND(node))
        return NodeType::Command;
    if (ARV_IS_GC_INTEGER(node))
        return NodeType::Integer;
    if (ARV_IS_GC_FLOAT(node))
        return NodeType::Float;
    if (ARV_IS_GC_STRING(node))
        return NodeType::String;
    return NodeType::Other;
}

std::int32_t CheckAvailable(ArvGcFeatureNode *node)
{
    ErrorSlot error;
    bool const available = arv_gc_feature_node_is_available(node, error);
    if (error.Status() != TOV_CAM_ERR_OK)
        return error.Status();
    return available ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_ACCESS;
}

// ArvGc's own access check knows neither availability nor locks.
std::int32_t CheckReadable(ArvGcFeatureNode *node)
{
    if (std::int32_t const status = CheckAvailable(node); status != TOV_CAM_ERR_OK)
        return status;
    return arv_gc_feature_node_get_actual_access_mode(node) == ARV_GC_ACCESS_MODE_WO ? TOV_CAM_ERR_GENICAM_ACCESS
                                                                                     : TOV_CAM_ERR_OK;
}

std::int32_t CheckWritable(ArvGcFeatureNode *node)
{
    if (std::int32_t const status = CheckAvailable(node); status != TOV_CAM_ERR_OK)
        return status;
    ErrorSlot error;
    bool const locked = arv_gc_feature_node_is_locked(node, error);
    if (error.Status() != TOV_CAM_ERR_OK)
        return error.Status();
    if (locked || arv_gc_feature_node_get_actual_access_mode(node) == ARV_GC_ACCESS_MODE_RO)
        return TOV_CAM_ERR_GENICAM_ACCESS;
    return TOV_CAM_ERR_OK;
}

} // namespace

struct NodeMap::Impl
{
    // The device's lock for the time of one call, and whether the camera may be asked at all.
    struct Hold
    {
        explicit Hold(Impl &map) : map(map), lock(map.access)
        {
            if (map.depth++ == 0 && map.gate)
                map.refusal = map.gate->Enter();
        }
        ~Hold()
        {
            if (--map.depth == 0 && map.gate)
                map.gate->Leave();
        }
        Impl &map;
        std::lock_guard<std::recursive_mutex> lock;
    };

    class Integer final : public TovCam::IntParam
    {
    public:
        Integer(Impl &map, ArvGcFeatureNode *node) : m_map(map), m_node(node)
        {
        }
        char const *GetName() override
        {
            return arv_gc_feature_node_get_name(m_node);
        }
        std::int64_t GetValue(std::int32_t *error) override
        {
            return m_map.ReadInteger(m_node, error);
        }
        std::int64_t GetMin(std::int32_t *error) override
        {
            return Bound(arv_gc_integer_get_min, error);
        }
        std::int64_t GetMax(std::int32_t *error) override
        {
            return Bound(arv_gc_integer_get_max, error);
        }

    private:
        std::int64_t Bound(gint64 (*get)(ArvGcInteger *, GError **), std::int32_t *error)
        {
            Hold const hold(m_map);
            ErrorSlot slot;
            std::int32_t status = m_map.refusal;
            std::int64_t value = 0;
            if (status == TOV_CAM_ERR_OK) {
                value = get(ARV_GC_INTEGER(m_node), slot);
                status = slot.Status();
            }
            Store(error, status);
            return status == TOV_CAM_ERR_OK ? value : 0;
        }

        Impl &m_map;
        ArvGcFeatureNode *const m_node;
    };

    class String final : public TovCam::StringParam
    {
    public:
        String(Impl &map, ArvGcFeatureNode *node) : m_map(map), m_node(node)
        {
        }
        char const *GetName() override
        {
            return arv_gc_feature_node_get_name(m_node);
        }
        char const *GetValue(std::int32_t *error) override
        {
            Hold const hold(m_map);
            ErrorSlot slot;
            std::int32_t status = m_map.CheckReadable(m_node);
            char const *text = nullptr;
            if (status == TOV_CAM_ERR_OK) {
                text = arv_gc_string_get_value(ARV_GC_STRING(m_node), slot);
                status = slot.Status();
            }
            Store(error, status);
            if (status != TOV_CAM_ERR_OK || !text)
                return "";
            if (m_text != text) // an unchanged text keeps its place
                m_text = text;
            return m_text.c_str();
        }

    private:
        Impl &m_map;
        ArvGcFeatureNode *const m_node;
        std::string m_text; // guarded by the device's lock
    };

    class Enumeration final : public TovCam::EnumParam
    {
    public:
        Enumeration(Impl &map, ArvGcFeatureNode *node) : m_map(map), m_node(node)
        {
        }
        char const *GetName() override
        {
            return arv_gc_feature_node_get_name(m_node);
        }
        char const *GetValueStr(std::int32_t *error) override
        {
            char const *const text = m_map.ReadEnumeration(m_node, error);
            return text ? text : "";
        }

    private:
        Impl &m_map;
        ArvGcFeatureNode *const m_node;
    };

    Impl(ArvDevice *device, std::recursive_mutex &mutex) : access(mutex)
    {
        std::lock_guard<std::recursive_mutex> lock(access);
        size_t size = 0;
        char const *const xml = arv_device_get_genicam_xml(device, &size);
        status = xml ? CheckGenicamXml(xml, size) : TOV_CAM_ERR_GENICAM_TREE;
        if (status != TOV_CAM_ERR_OK)
            return;
        genicam = arv_device_get_genicam(device);
        if (!ARV_IS_GC(genicam)) {
            genicam = nullptr;
            status = TOV_CAM_ERR_GENICAM_TREE;
            return;
        }
        g_object_ref(genicam);
        arv_gc_set_range_check_policy(genicam, ARV_RANGE_CHECK_POLICY_ENABLE);
        arv_gc_set_access_check_policy(genicam, ARV_ACCESS_CHECK_POLICY_ENABLE);
    }

    ~Impl()
    {
        if (genicam)
            g_object_unref(genicam);
    }

    // With the lock held. A node that the camera declares as not implemented is as good as absent.
    ArvGcFeatureNode *Find(char const *name, std::int32_t &result)
    {
        result = status != TOV_CAM_ERR_OK ? status : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        if (!genicam || !name)
            return nullptr;
        if (refusal != TOV_CAM_ERR_OK) {
            result = refusal;
            return nullptr;
        }
        ArvGcNode *const node = arv_gc_get_node(genicam, name);
        if (!ARV_IS_GC_FEATURE_NODE(node))
            return nullptr;
        ErrorSlot error;
        bool const implemented = arv_gc_feature_node_is_implemented(ARV_GC_FEATURE_NODE(node), error);
        if (!implemented && error.Status() == TOV_CAM_ERR_OK)
            return nullptr;
        result = TOV_CAM_ERR_OK;
        return ARV_GC_FEATURE_NODE(node);
    }

    ArvGcFeatureNode *Find(char const *name, NodeType type, std::int32_t &result)
    {
        ArvGcFeatureNode *const node = Find(name, result);
        if (!node || TypeOf(ARV_GC_NODE(node)) == type)
            return node;
        result = TOV_CAM_ERR_GENICAM_PARAM_TYPE;
        return nullptr;
    }

    // The one Param of a node, made on first sight.
    template<class P>
    P *GetParam(std::map<std::string, std::unique_ptr<P>, std::less<>> &params, char const *name, NodeType type,
                std::int32_t *error)
    {
        Hold const hold(*this);
        std::int32_t result;
        ArvGcFeatureNode *const node = Find(name, type, result);
        Store(error, result);
        if (!node)
            return nullptr;
        auto const known = params.find(std::string_view(name));
        if (known != params.end())
            return known->second.get();
        return params.emplace(name, std::make_unique<P>(*this, node)).first->second.get();
    }

    // A node of the type, found and writable: `write` is called on it.
    template<class Write>
    std::int32_t WriteNode(char const *name, NodeType type, Write write)
    {
        Hold const hold(*this);
        std::int32_t result;
        ArvGcFeatureNode *const node = Find(name, type, result);
        if (!node)
            return result;
        result = CheckWritable(node);
        if (result != TOV_CAM_ERR_OK)
            return result;
        ErrorSlot error;
        result = write(node, error);
        return result != TOV_CAM_ERR_OK ? result : error.Status();
    }

    std::int64_t ReadInteger(ArvGcFeatureNode *node, std::int32_t *error)
    {
        Hold const hold(*this);
        ErrorSlot slot;
        std::int64_t value = 0;
        std::int32_t result = CheckReadable(node);
        if (result == TOV_CAM_ERR_OK) {
            value = arv_gc_integer_get_value(ARV_GC_INTEGER(node), slot);
            result = slot.Status();
        }
        Store(error, result);
        return result == TOV_CAM_ERR_OK ? value : 0;
    }

    char const *ReadEnumeration(ArvGcFeatureNode *node, std::int32_t *error)
    {
        Hold const hold(*this);
        ErrorSlot slot;
        char const *text = nullptr;
        std::int32_t result = CheckReadable(node);
        if (result == TOV_CAM_ERR_OK) {
            text = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), slot);
            result = slot.Status();
            // A register that holds no entry's value.
            if (result == TOV_CAM_ERR_OK && !text)
                result = TOV_CAM_ERR_GENICAM_GENERIC;
        }
        Store(error, result);
        return result == TOV_CAM_ERR_OK ? texts.emplace(text).first->c_str() : nullptr;
    }

    // With the lock held.
    std::int32_t CheckReadable(ArvGcFeatureNode *node) const
    {
        return refusal != TOV_CAM_ERR_OK ? refusal : ::CheckReadable(node);
    }

    std::recursive_mutex &access; // guards everything below
    AccessGate *gate = nullptr;
    int depth = 0;                         // of calls that hold the lock
    std::int32_t refusal = TOV_CAM_ERR_OK; // what the gate said to the outermost call
    ArvGc *genicam = nullptr;
    std::int32_t status = TOV_CAM_ERR_OK;
    std::map<std::string, std::unique_ptr<Integer>, std::less<>> integers;
    std::map<std::string, std::unique_ptr<String>, std::less<>> strings;
    std::map<std::string, std::unique_ptr<Enumeration>, std::less<>> enumerations;
    std::set<std::string, std::less<>> texts; // of enumeration entries: a finite set, which keeps them valid for good
};

NodeMap::NodeMap(ArvDevice *device, std::recursive_mutex &access) : m_impl(std::make_unique<Impl>(device, access))
{
}

NodeMap::~NodeMap() = default;

std::int32_t NodeMap::GetStatus() const
{
    return m_impl->status;
}

bool NodeMap::HasNode(char const *name)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    return m_impl->Find(name, result) != nullptr;
}

void NodeMap::SetGate(AccessGate *gate)
{
    std::lock_guard<std::recursive_mutex> lock(m_impl->access);
    m_impl->gate = gate;
}

TovCam::EnumParam *NodeMap::GetEnum(char const *name, std::int32_t *error)
{
    return m_impl->GetParam(m_impl->enumerations, name, NodeType::Enumeration, error);
}

TovCam::IntParam *NodeMap::GetInt(char const *name, std::int32_t *error)
{
    return m_impl->GetParam(m_impl->integers, name, NodeType::Integer, error);
}

TovCam::StringParam *NodeMap::GetString(char const *name, std::int32_t *error)
{
    return m_impl->GetParam(m_impl->strings, name, NodeType::String, error);
}

char const *NodeMap::GetEnumValueStr(char const *name, std::int32_t *error)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(name, NodeType::Enumeration, result);
    if (node)
        return m_impl->ReadEnumeration(node, error);
    Store(error, result);
    return nullptr;
}

std::int32_t NodeMap::SetIntegerValue(char const *name, std::int64_t value)
{
    return m_impl->WriteNode(name, NodeType::Integer, [value](ArvGcFeatureNode *node, GError **error) {
        ArvGcInteger *const integer = ARV_GC_INTEGER(node);
        // ArvGc checks the bounds, and lets values between two steps pass.
        gint64 const increment = arv_gc_integer_get_inc(integer, nullptr);
        if (increment > 1) {
            gint64 const minimum = arv_gc_integer_get_min(integer, nullptr);
            auto const distance = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(minimum);
            if (value >= minimum && distance % static_cast<std::uint64_t>(increment) != 0)
                return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
        }
        arv_gc_integer_set_value(integer, value, error);
        return TOV_CAM_ERR_OK;
    });
}

std::int64_t NodeMap::GetIntegerValue(char const *name, std::int32_t *error)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(name, NodeType::Integer, result);
    if (node)
        return m_impl->ReadInteger(node, error);
    Store(error, result);
    return 0;
}

std::int32_t NodeMap::ExecuteCommand(char const *name)
{
    return m_impl->WriteNode(name, NodeType::Command, [](ArvGcFeatureNode *node, GError **error) {
        arv_gc_command_execute(ARV_GC_COMMAND(node), error);
        return TOV_CAM_ERR_OK;
    });
}

std::int32_t NodeMap::SetEnumValueStr(char const *name, char const *value)
{
    if (!value)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    return m_impl->WriteNode(name, NodeType::Enumeration, [value](ArvGcFeatureNode *node, GError **error) {
        ArvGcEnumeration *const enumeration = ARV_GC_ENUMERATION(node);
        for (GSList const *i = arv_gc_enumeration_get_entries(enumeration); i; i = i->next) {
            ArvGcFeatureNode *const entry = ARV_GC_FEATURE_NODE(i->data);
            if (g_strcmp0(arv_gc_feature_node_get_name(entry), value) != 0)
                continue;
            ErrorSlot slot;
            if (!arv_gc_feature_node_is_implemented(entry, slot) || !arv_gc_feature_node_is_available(entry, slot))
                return slot.Status() != TOV_CAM_ERR_OK ? slot.Status()
                                                       : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_ACCESS);
        }
        arv_gc_enumeration_set_string_value(enumeration, value, error);
        return static_cast<std::int32_t>(TOV_CAM_ERR_OK);
    });
}

std::int32_t NodeMap::SetFloatValue(char const *name, double value)
{
    if (std::isnan(value))
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    return m_impl->WriteNode(name, NodeType::Float, [value](ArvGcFeatureNode *node, GError **error) {
        arv_gc_float_set_value(ARV_GC_FLOAT(node), value, error);
        return TOV_CAM_ERR_OK;
    });
}

double NodeMap::GetFloatValue(char const *name, std::int32_t *error)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(name, NodeType::Float, result);
    double value = 0.0;
    if (node && (result = CheckReadable(node)) == TOV_CAM_ERR_OK) {
        ErrorSlot slot;
        value = arv_gc_float_get_value(ARV_GC_FLOAT(node), slot);
        result = slot.Status();
    }
    Store(error, result);
    return result == TOV_CAM_ERR_OK ? value : 0.0;
}

std::int32_t NodeMap::SetBooleanValue(char const *name, bool value)
{
    return m_impl->WriteNode(name, NodeType::Boolean, [value](ArvGcFeatureNode *node, GError **error) {
        arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), value, error);
        return TOV_CAM_ERR_OK;
    });
}

std::int32_t NodeMap::SetStringValue(char const *name, char const *value)
{
    if (!value)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    return m_impl->WriteNode(name, NodeType::String, [value](ArvGcFeatureNode *node, GError **error) {
        ArvGcString *const string = ARV_GC_STRING(node);
        ErrorSlot slot;
        gint64 const room = arv_gc_string_get_max_length(string, slot);
        if (slot.Status() == TOV_CAM_ERR_OK && room > 0 && std::char_traits<char>::length(value) > std::size_t(room))
            return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
        arv_gc_string_set_value(string, value, error);
        return TOV_CAM_ERR_OK;
    });
}

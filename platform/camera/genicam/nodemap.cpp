#include "nodemap.h"

#include "featuretree.h"
#include "statusout.h"
#include "xmlcheck.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <set>
#include <vector>

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

constexpr guint64 MaxRegister = 1u << 20; // bytes; a table of corrections has some ten thousand

// ---- Writing a node of a known type that has been found writable ----

std::int32_t WriteInteger(ArvGcFeatureNode *node, std::int64_t value)
{
    ArvGcInteger *const integer = ARV_GC_INTEGER(node);
    // ArvGc checks the bounds, and lets values between two steps pass.
    gint64 const increment = arv_gc_integer_get_inc(integer, nullptr);
    if (increment > 1) {
        gint64 const minimum = arv_gc_integer_get_min(integer, nullptr);
        auto const distance = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(minimum);
        if (value >= minimum && distance % static_cast<std::uint64_t>(increment) != 0)
            return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    }
    ErrorSlot error;
    arv_gc_integer_set_value(integer, value, error);
    return error.Status();
}

std::int32_t WriteFloat(ArvGcFeatureNode *node, double value)
{
    if (std::isnan(value))
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    ErrorSlot error;
    arv_gc_float_set_value(ARV_GC_FLOAT(node), value, error);
    return error.Status();
}

std::int32_t WriteBoolean(ArvGcFeatureNode *node, bool value)
{
    ErrorSlot error;
    arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), value, error);
    return error.Status();
}

// 0 where the entry can be chosen now.
std::int32_t CheckEntry(ArvGcFeatureNode *entry)
{
    ErrorSlot implementedError, availableError;
    bool const offered = arv_gc_feature_node_is_implemented(entry, implementedError) &&
                         arv_gc_feature_node_is_available(entry, availableError);
    for (std::int32_t const status : {implementedError.Status(), availableError.Status()}) {
        if (status != TOV_CAM_ERR_OK)
            return status;
    }
    return offered ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_ACCESS;
}

std::int32_t WriteEntry(ArvGcFeatureNode *node, char const *name)
{
    ArvGcEnumeration *const enumeration = ARV_GC_ENUMERATION(node);
    for (GSList const *i = arv_gc_enumeration_get_entries(enumeration); i; i = i->next) {
        ArvGcFeatureNode *const entry = ARV_GC_FEATURE_NODE(i->data);
        if (g_strcmp0(arv_gc_feature_node_get_name(entry), name) != 0)
            continue;
        if (std::int32_t const status = CheckEntry(entry); status != TOV_CAM_ERR_OK)
            return status;
    }
    ErrorSlot error;
    arv_gc_enumeration_set_string_value(enumeration, name, error);
    return error.Status();
}

std::int32_t WriteString(ArvGcFeatureNode *node, char const *value)
{
    ArvGcString *const string = ARV_GC_STRING(node);
    ErrorSlot slot;
    gint64 const room = arv_gc_string_get_max_length(string, slot);
    if (room > static_cast<gint64>(MaxRegister))
        return TOV_CAM_ERR_GENICAM_TREE;
    if (slot.Status() == TOV_CAM_ERR_OK && room > 0 && std::char_traits<char>::length(value) > std::size_t(room))
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    ErrorSlot error;
    arv_gc_string_set_value(string, value, error);
    return error.Status();
}

std::int32_t WriteRegister(ArvGcFeatureNode *node, std::string const &bytes)
{
    ErrorSlot lengthError, error;
    guint64 const length = arv_gc_register_get_length(ARV_GC_REGISTER(node), lengthError);
    if (lengthError.Status() != TOV_CAM_ERR_OK)
        return lengthError.Status();
    if (length > MaxRegister)
        return TOV_CAM_ERR_GENICAM_TREE;
    if (bytes.empty() || bytes.size() != length)
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    arv_gc_register_set(ARV_GC_REGISTER(node), bytes.data(), length, error);
    return error.Status();
}

std::int32_t Execute(ArvGcFeatureNode *node)
{
    ErrorSlot error;
    arv_gc_command_execute(ARV_GC_COMMAND(node), error);
    return error.Status();
}

// ---- Reading a node of a known type that has been found readable ----

std::int32_t ReadRegister(ArvGcFeatureNode *node, std::uint64_t *size, std::string *bytes)
{
    ErrorSlot lengthError, error;
    guint64 const length = arv_gc_register_get_length(ARV_GC_REGISTER(node), lengthError);
    if (lengthError.Status() != TOV_CAM_ERR_OK)
        return lengthError.Status();
    if (length > MaxRegister)
        return TOV_CAM_ERR_GENICAM_TREE;
    *size = length;
    std::string read(length, '\0');
    if (length > 0)
        arv_gc_register_get(ARV_GC_REGISTER(node), read.data(), length, error);
    if (error.Status() == TOV_CAM_ERR_OK)
        *bytes = std::move(read);
    return error.Status();
}

// Of a text that stands in a register: ArvGc trusts it to have an end.
std::int32_t ReadText(ArvGcFeatureNode *node, std::string *text)
{
    text->clear();
    ArvGcNode *source = ARV_GC_NODE(node);
    for (int links = 0; ARV_IS_GC_FEATURE_NODE(source) && links < 100; ++links) {
        if (ARV_IS_GC_REGISTER(source)) {
            std::uint64_t size = 0;
            std::int32_t const status = ReadRegister(ARV_GC_FEATURE_NODE(source), &size, text);
            text->resize(std::min(text->find('\0'), text->size()));
            return status;
        }
        ArvGcNode *const present = source;
        source = nullptr;
        for (ArvDomNode *child = arv_dom_node_get_first_child(ARV_DOM_NODE(present)); child;
             child = arv_dom_node_get_next_sibling(child)) {
            if (ARV_IS_GC_PROPERTY_NODE(child) &&
                arv_gc_property_node_get_node_type(ARV_GC_PROPERTY_NODE(child)) == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE)
                source = arv_gc_property_node_get_linked_node(ARV_GC_PROPERTY_NODE(child));
        }
    }
    ErrorSlot error;
    char const *const value = arv_gc_string_get_value(ARV_GC_STRING(node), error);
    *text = value ? value : "";
    return error.Status();
}

void ReadLimits(ArvGcFeatureNode *node, TovCam::FeatureKind kind, TovCam::FeatureState &state)
{
    if (kind == TovCam::FeatureKind::Integer) {
        ArvGcInteger *const integer = ARV_GC_INTEGER(node);
        state.minimum = arv_gc_integer_get_min(integer, nullptr);
        state.maximum = arv_gc_integer_get_max(integer, nullptr);
        state.increment = std::max<gint64>(arv_gc_integer_get_inc(integer, nullptr), 1);
    } else if (kind == TovCam::FeatureKind::Float) {
        ArvGcFloat *const real = ARV_GC_FLOAT(node);
        state.realMinimum = arv_gc_float_get_min(real, nullptr);
        state.realMaximum = arv_gc_float_get_max(real, nullptr);
        double const increment = arv_gc_float_get_inc(real, nullptr);
        // ArvGc has the smallest number there is for none.
        state.realIncrement = increment > std::numeric_limits<double>::min() ? increment : 0.0;
    } else if (kind == TovCam::FeatureKind::String) {
        state.length =
            static_cast<std::uint64_t>(std::max<gint64>(arv_gc_string_get_max_length(ARV_GC_STRING(node), nullptr), 0));
    }
}

} // namespace

struct NodeMap::Impl
{
    // The device's lock for the time of one call, and whether the camera may be asked at all: nothing of the
    // description is touched where `status` is not 0.
    struct Hold
    {
        explicit Hold(Impl &impl) : map(impl), lock(impl.access, std::defer_lock)
        {
            // A refused call does not wait for one that is under way.
            if (map.refused.load(std::memory_order_acquire))
                return;
            lock.lock();
            if (map.refused.load(std::memory_order_acquire))
                return;
            entered = true;
            if (map.depth++ == 0 && map.gate)
                map.refusal = map.gate->Enter();
            status = map.refusal;
        }
        ~Hold()
        {
            if (entered && --map.depth == 0 && map.gate)
                map.gate->Leave();
        }
        Impl &map;
        std::unique_lock<std::recursive_mutex> lock;
        bool entered = false;
        std::int32_t status = TOV_CAM_ERR_NO_DEVICE;
    };

    // What the parameters of every type share.
    class Base
    {
    protected:
        Base(Impl &map, ArvGcFeatureNode *node) : m_map(map), m_node(node), m_name(arv_gc_feature_node_get_name(node))
        {
        }
        Impl &m_map;
        ArvGcFeatureNode *const m_node;
        std::string const m_name;
    };

    class Integer final : public TovCam::IntParam, Base
    {
    public:
        Integer(Impl &map, ArvGcFeatureNode *node) : Base(map, node)
        {
        }
        char const *GetName() override
        {
            return m_name.c_str();
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
            std::int32_t status = hold.status;
            std::int64_t value = 0;
            if (status == TOV_CAM_ERR_OK) {
                value = get(ARV_GC_INTEGER(m_node), slot);
                status = slot.Status();
            }
            Store(error, status);
            return status == TOV_CAM_ERR_OK ? value : 0;
        }
    };

    class String final : public TovCam::StringParam, Base
    {
    public:
        String(Impl &map, ArvGcFeatureNode *node) : Base(map, node)
        {
        }
        char const *GetName() override
        {
            return m_name.c_str();
        }
        char const *GetValue(std::int32_t *error) override
        {
            Hold const hold(m_map);
            std::int32_t status = hold.status != TOV_CAM_ERR_OK ? hold.status : CheckReadable(m_node);
            std::string text;
            if (status == TOV_CAM_ERR_OK)
                status = ReadText(m_node, &text);
            Store(error, status);
            if (status != TOV_CAM_ERR_OK)
                return "";
            if (m_text != text) // an unchanged text keeps its place
                m_text = text;
            return m_text.c_str();
        }

    private:
        std::string m_text; // guarded by the device's lock
    };

    class Enumeration final : public TovCam::EnumParam, Base
    {
    public:
        Enumeration(Impl &map, ArvGcFeatureNode *node) : Base(map, node)
        {
        }
        char const *GetName() override
        {
            return m_name.c_str();
        }
        char const *GetValueStr(std::int32_t *error) override
        {
            char const *const text = m_map.ReadEnumeration(m_node, error);
            return text ? text : "";
        }
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
        g_clear_object(&genicam);
    }

    // A node that the camera declares as not implemented is as good as absent.
    ArvGcFeatureNode *Find(Hold const &hold, char const *name, std::int32_t &result)
    {
        result = hold.status;
        if (result != TOV_CAM_ERR_OK)
            return nullptr;
        result = status != TOV_CAM_ERR_OK ? status : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        if (!genicam || !name)
            return nullptr;
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

    ArvGcFeatureNode *Find(Hold const &hold, char const *name, NodeType type, std::int32_t &result)
    {
        ArvGcFeatureNode *const node = Find(hold, name, result);
        if (!node || TypeOf(ARV_GC_NODE(node)) == type)
            return node;
        result = TOV_CAM_ERR_GENICAM_PARAM_TYPE;
        return nullptr;
    }

    // A node of the tree. `tree` is there whenever the outcome is not null.
    ArvGcFeatureNode *Find(Hold const &hold, std::uint32_t index, std::int32_t &result)
    {
        result = hold.status;
        FeatureTree *const features = result == TOV_CAM_ERR_OK ? GetTree() : nullptr;
        ArvGcFeatureNode *const node = features ? features->GetNode(index) : nullptr;
        if (!node && result == TOV_CAM_ERR_OK)
            result = TOV_CAM_ERR_INVALID_INDEX;
        return node;
    }

    // Null where there is none and none can be made any more.
    FeatureTree *GetTree()
    {
        if (FeatureTree *const made = publishedTree.load(std::memory_order_acquire))
            return made;
        Hold const hold(*this);
        if (!hold.entered || !genicam)
            return nullptr;
        if (!tree) {
            tree = std::make_unique<FeatureTree>(genicam);
            publishedTree.store(tree.get(), std::memory_order_release);
        }
        return tree.get();
    }

    // The one Param of a node, made on first sight.
    template<class P>
    P *GetParam(std::map<std::string, std::unique_ptr<P>, std::less<>> &params, char const *name, NodeType type,
                std::int32_t *error)
    {
        Hold const hold(*this);
        std::int32_t result;
        ArvGcFeatureNode *const node = Find(hold, name, type, result);
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
        ArvGcFeatureNode *const node = Find(hold, name, type, result);
        if (!node)
            return result;
        result = CheckWritable(node);
        return result == TOV_CAM_ERR_OK ? write(node) : result;
    }

    std::int64_t ReadInteger(ArvGcFeatureNode *node, std::int32_t *error)
    {
        Hold const hold(*this);
        ErrorSlot slot;
        std::int64_t value = 0;
        std::int32_t result = hold.status != TOV_CAM_ERR_OK ? hold.status : CheckReadable(node);
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
        std::int32_t result = hold.status != TOV_CAM_ERR_OK ? hold.status : CheckReadable(node);
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

    std::atomic<bool> refused{false};
    std::atomic<FeatureTree *> publishedTree{nullptr}; // `tree`, once it is made
    std::weak_ptr<void> owner;                         // set before the map is handed out
    std::recursive_mutex &access;                      // guards everything below
    AccessGate *gate = nullptr;
    int depth = 0;                         // of calls that hold the lock
    std::int32_t refusal = TOV_CAM_ERR_OK; // what the gate said to the outermost call
    ArvGc *genicam = nullptr;
    std::int32_t status = TOV_CAM_ERR_OK;
    std::unique_ptr<FeatureTree> tree;
    std::map<std::uint32_t, std::vector<TovCam::RefusedSetting>> refusals;
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
    return m_impl->Find(hold, name, result) != nullptr;
}

void NodeMap::SetGate(AccessGate *gate)
{
    std::lock_guard<std::recursive_mutex> lock(m_impl->access);
    m_impl->gate = gate;
}

void NodeMap::SetOwner(std::weak_ptr<void> owner)
{
    m_impl->owner = std::move(owner);
}

void NodeMap::Refuse()
{
    m_impl->refused.store(true, std::memory_order_release);
}

void NodeMap::Drop()
{
    g_clear_object(&m_impl->genicam);
}

std::shared_ptr<void> NodeMap::Hold()
{
    return m_impl->owner.lock();
}

// ---- Nodes by their names ------------------------------------------------------------------------------------------

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
    ArvGcFeatureNode *const node = m_impl->Find(hold, name, NodeType::Enumeration, result);
    if (node)
        return m_impl->ReadEnumeration(node, error);
    Store(error, result);
    return nullptr;
}

std::int32_t NodeMap::SetIntegerValue(char const *name, std::int64_t value)
{
    return m_impl->WriteNode(name, NodeType::Integer,
                             [value](ArvGcFeatureNode *node) { return WriteInteger(node, value); });
}

std::int64_t NodeMap::GetIntegerValue(char const *name, std::int32_t *error)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, name, NodeType::Integer, result);
    if (node)
        return m_impl->ReadInteger(node, error);
    Store(error, result);
    return 0;
}

std::int32_t NodeMap::ExecuteCommand(char const *name)
{
    return m_impl->WriteNode(name, NodeType::Command, Execute);
}

std::int32_t NodeMap::SetEnumValueStr(char const *name, char const *value)
{
    if (!value)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    return m_impl->WriteNode(name, NodeType::Enumeration,
                             [value](ArvGcFeatureNode *node) { return WriteEntry(node, value); });
}

std::int32_t NodeMap::SetFloatValue(char const *name, double value)
{
    return m_impl->WriteNode(name, NodeType::Float,
                             [value](ArvGcFeatureNode *node) { return WriteFloat(node, value); });
}

double NodeMap::GetFloatValue(char const *name, std::int32_t *error)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, name, NodeType::Float, result);
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
    return m_impl->WriteNode(name, NodeType::Boolean,
                             [value](ArvGcFeatureNode *node) { return WriteBoolean(node, value); });
}

std::int32_t NodeMap::SetStringValue(char const *name, char const *value)
{
    if (!value)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    return m_impl->WriteNode(name, NodeType::String,
                             [value](ArvGcFeatureNode *node) { return WriteString(node, value); });
}

// ---- The feature tree ----------------------------------------------------------------------------------------------

std::uint32_t NodeMap::GetFeatureCount()
{
    FeatureTree *const tree = m_impl->GetTree();
    return tree ? tree->GetCount() : 0;
}

TovCam::FeatureInfo const *NodeMap::GetFeature(std::uint32_t index)
{
    FeatureTree *const tree = m_impl->GetTree();
    return tree ? tree->GetInfo(index) : nullptr;
}

std::int32_t NodeMap::GetRole(std::uint32_t index, FeatureRole *role)
{
    *role = {};
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, index, result);
    if (!node)
        return result;
    ErrorSlot implemented, available, locked;
    role->implemented = arv_gc_feature_node_is_implemented(node, implemented);
    if (implemented.Status() != TOV_CAM_ERR_OK || !role->implemented)
        return implemented.Status();
    role->available = arv_gc_feature_node_is_available(node, available);
    if (available.Status() != TOV_CAM_ERR_OK || !role->available)
        return available.Status();
    role->locked = arv_gc_feature_node_is_locked(node, locked);
    role->writable = arv_gc_feature_node_get_actual_access_mode(node) != ARV_GC_ACCESS_MODE_RO;
    return locked.Status();
}

std::int32_t NodeMap::ReadValue(std::uint32_t index, TovCam::FeatureState *state)
{
    using TovCam::FeatureAccess;
    using TovCam::FeatureKind;

    *state = {};
    state->access = FeatureAccess::NotAvailable;
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, index, result);
    if (!node)
        return result;
    FeatureRole role;
    result = GetRole(index, &role);
    if (result != TOV_CAM_ERR_OK)
        return result;
    if (!role.implemented)
        state->access = FeatureAccess::NotImplemented;
    if (!role.available)
        return TOV_CAM_ERR_OK;
    TovCam::FeatureInfo const &info = *m_impl->tree->GetInfo(index);
    bool const writable = role.writable && !role.locked;
    if (info.kind == FeatureKind::Category) {
        state->access = FeatureAccess::ReadOnly;
        return TOV_CAM_ERR_OK;
    }
    if (info.kind == FeatureKind::Command) {
        state->access = writable ? FeatureAccess::WriteOnly : FeatureAccess::ReadOnly;
        return TOV_CAM_ERR_OK;
    }
    bool const readable = arv_gc_feature_node_get_actual_access_mode(node) != ARV_GC_ACCESS_MODE_WO;
    state->access = readable   ? writable ? FeatureAccess::ReadWrite : FeatureAccess::ReadOnly
                    : writable ? FeatureAccess::WriteOnly
                               : FeatureAccess::NotAvailable;
    if (readable) {
        ErrorSlot error;
        TovCam::FeatureValue &value = state->value;
        switch (info.kind) {
        case FeatureKind::Integer:
            value.integer = arv_gc_integer_get_value(ARV_GC_INTEGER(node), error);
            break;
        case FeatureKind::Float:
            value.real = arv_gc_float_get_value(ARV_GC_FLOAT(node), error);
            break;
        case FeatureKind::Boolean:
            value.integer = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), error);
            break;
        case FeatureKind::Enumeration: {
            value.integer = arv_gc_enumeration_get_int_value(ARV_GC_ENUMERATION(node), error);
            auto const entry = std::find_if(info.entries.begin(), info.entries.end(),
                                            [&value](auto const &one) { return one.value == value.integer; });
            if (entry != info.entries.end())
                value.text = entry->name;
            else
                state->valueStatus = TOV_CAM_ERR_GENICAM_OUT_OF_RANGE; // a register that holds no entry's value
            break;
        }
        case FeatureKind::String:
            state->valueStatus = ReadText(node, &value.text);
            break;
        case FeatureKind::Register:
            state->valueStatus = ReadRegister(node, &state->length, &value.text);
            break;
        default:
            break;
        }
        if (std::int32_t const status = error.Status(); status != TOV_CAM_ERR_OK)
            state->valueStatus = status;
        if (state->valueStatus != TOV_CAM_ERR_OK && info.kind != FeatureKind::Enumeration)
            value = {};
    }
    return TOV_CAM_ERR_OK;
}

std::int32_t NodeMap::ReadFeature(std::uint32_t index, TovCam::FeatureState *state)
{
    if (!state)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    Impl::Hold const hold(*m_impl);
    std::int32_t result = ReadValue(index, state);
    if (result == TOV_CAM_ERR_OK) {
        state->streamLocked = state->access <= TovCam::FeatureAccess::ReadOnly && IsStreamLocked(index);
        if (auto const refused = m_impl->refusals.find(index); refused != m_impl->refusals.end())
            state->refused = refused->second;
    }
    // Whoever does not answer to one question would let the next ones wait as well.
    bool const answers = state->valueStatus == TOV_CAM_ERR_OK || state->valueStatus == TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    if (result != TOV_CAM_ERR_OK || state->access < TovCam::FeatureAccess::WriteOnly || !answers)
        return result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, index, result);
    if (!node)
        return result;
    TovCam::FeatureKind const kind = m_impl->tree->GetInfo(index)->kind;
    if (kind == TovCam::FeatureKind::Enumeration) {
        std::vector<ArvGcFeatureNode *> const &entries = m_impl->tree->GetEntryNodes(index);
        for (std::uint32_t i = 0; i < entries.size(); ++i) {
            if (CheckEntry(entries[i]) == TOV_CAM_ERR_OK)
                state->available.push_back(i);
        }
    }
    ReadLimits(node, kind, *state);
    return TOV_CAM_ERR_OK;
}

// With the device's lock held.
bool NodeMap::IsStreamLocked(std::uint32_t index)
{
    FeatureRole role;
    std::int32_t error = TOV_CAM_ERR_OK;
    return m_impl->tree->IsLockedWithTransport(index) && GetRole(index, &role) == TOV_CAM_ERR_OK && role.writable &&
           role.locked && GetIntegerValue("TLParamsLocked", &error) != 0 && error == TOV_CAM_ERR_OK;
}

void NodeMap::SetRefused(std::map<std::uint32_t, std::vector<TovCam::RefusedSetting>> refused)
{
    Impl::Hold const hold(*m_impl);
    if (hold.entered)
        m_impl->refusals = std::move(refused);
}

std::int32_t NodeMap::WriteFeature(std::uint32_t index, TovCam::FeatureValue const &value)
{
    Impl::Hold const hold(*m_impl);
    std::int32_t const status = Write(index, value);
    if (status == TOV_CAM_ERR_OK)
        m_impl->refusals.erase(index);
    return status;
}

std::int32_t NodeMap::Write(std::uint32_t index, TovCam::FeatureValue const &value)
{
    using TovCam::FeatureKind;

    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, index, result);
    if (!node)
        return result;
    FeatureRole role;
    result = GetRole(index, &role);
    if (result != TOV_CAM_ERR_OK)
        return result;
    if (!role.writable || role.locked)
        return TOV_CAM_ERR_GENICAM_ACCESS;
    TovCam::FeatureInfo const &info = *m_impl->tree->GetInfo(index);
    switch (info.kind) {
    case FeatureKind::Integer:
        return WriteInteger(node, value.integer);
    case FeatureKind::Float:
        return WriteFloat(node, value.real);
    case FeatureKind::Boolean:
        return WriteBoolean(node, value.integer != 0);
    case FeatureKind::Enumeration: {
        if (!value.text.empty())
            return WriteEntry(node, value.text.c_str());
        auto const entry = std::find_if(info.entries.begin(), info.entries.end(),
                                        [&value](auto const &one) { return one.value == value.integer; });
        return entry != info.entries.end() ? WriteEntry(node, entry->name.c_str())
                                           : TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
    }
    case FeatureKind::String:
        return WriteString(node, value.text.c_str());
    case FeatureKind::Command:
        return Execute(node);
    case FeatureKind::Register:
        return WriteRegister(node, value.text);
    case FeatureKind::Category:
        break;
    }
    return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
}

std::int32_t NodeMap::IsCommandDone(std::uint32_t index, bool *done)
{
    if (!done)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    *done = true;
    Impl::Hold const hold(*m_impl);
    std::int32_t result;
    ArvGcFeatureNode *const node = m_impl->Find(hold, index, result);
    if (!node)
        return result;
    if (!ARV_IS_GC_COMMAND(node))
        return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
    ArvGcNode *target = nullptr;
    ErrorSlot commandError, valueError;
    gint64 command = 0;
    for (ArvDomNode *child = arv_dom_node_get_first_child(ARV_DOM_NODE(node)); child;
         child = arv_dom_node_get_next_sibling(child)) {
        if (!ARV_IS_GC_PROPERTY_NODE(child))
            continue;
        ArvGcPropertyNode *const property = ARV_GC_PROPERTY_NODE(child);
        switch (arv_gc_property_node_get_node_type(property)) {
        case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE:
            target = arv_gc_property_node_get_linked_node(property);
            break;
        case ARV_GC_PROPERTY_NODE_TYPE_COMMAND_VALUE:
        case ARV_GC_PROPERTY_NODE_TYPE_P_COMMAND_VALUE:
            if (commandError.Status() == TOV_CAM_ERR_OK)
                command = arv_gc_property_node_get_int64(property, commandError);
            break;
        default:
            break;
        }
    }
    // A camera that cannot be asked has done it when it has taken the command.
    if (!ARV_IS_GC_INTEGER(target) || ::CheckReadable(ARV_GC_FEATURE_NODE(target)) != TOV_CAM_ERR_OK)
        return TOV_CAM_ERR_OK;
    gint64 const value = arv_gc_integer_get_value(ARV_GC_INTEGER(target), valueError);
    result = valueError.Status() != TOV_CAM_ERR_OK ? valueError.Status() : commandError.Status();
    *done = result != TOV_CAM_ERR_OK || value != command;
    return result;
}

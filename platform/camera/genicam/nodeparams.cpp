#include "nodeparams.h"

#include "noderead.h"
#include "storestatus.h"

using TovCam::FeatureKind;

// What the parameters of every type share.
class NodeParams::Base
{
protected:
    Base(NodeParams &params, ArvGcFeatureNode *node)
        : m_params(params),
          m_node(node),
          m_name(arv_gc_feature_node_get_name(node))
    {
    }
    NodeParams &m_params;
    ArvGcFeatureNode *const m_node;
    std::string const m_name;
};

class NodeParams::Integer final : public TovCam::IntParam, Base
{
public:
    Integer(NodeParams &params, ArvGcFeatureNode *node) : Base(params, node)
    {
    }
    char const *GetName() override
    {
        return m_name.c_str();
    }
    std::int64_t GetValue(std::int32_t *error) override
    {
        return m_params.ReadInteger(m_node, error);
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
        GenicamNodes::Call const call(m_params.m_nodes);
        ErrorSlot slot;
        std::int32_t status = call.status;
        std::int64_t value = 0;
        if (status == TOV_CAM_ERR_OK) {
            value = get(ARV_GC_INTEGER(m_node), slot);
            status = slot.Status();
        }
        StoreStatus(error, status);
        return status == TOV_CAM_ERR_OK ? value : 0;
    }
};

class NodeParams::String final : public TovCam::StringParam, Base
{
public:
    String(NodeParams &params, ArvGcFeatureNode *node) : Base(params, node)
    {
    }
    char const *GetName() override
    {
        return m_name.c_str();
    }
    char const *GetValue(std::int32_t *error) override
    {
        GenicamNodes::Call const call(m_params.m_nodes);
        std::int32_t status = call.status != TOV_CAM_ERR_OK ? call.status : CheckReadable(m_node);
        std::string text;
        if (status == TOV_CAM_ERR_OK)
            status = ReadText(m_node, &text);
        StoreStatus(error, status);
        if (status != TOV_CAM_ERR_OK)
            return "";
        if (m_text != text) // an unchanged text keeps its place
            m_text = text;
        return m_text.c_str();
    }

private:
    std::string m_text; // guarded by the device's lock
};

class NodeParams::Enumeration final : public TovCam::EnumParam, Base
{
public:
    Enumeration(NodeParams &params, ArvGcFeatureNode *node) : Base(params, node)
    {
    }
    char const *GetName() override
    {
        return m_name.c_str();
    }
    char const *GetValueStr(std::int32_t *error) override
    {
        char const *const text = m_params.ReadEntry(m_node, error);
        return text ? text : "";
    }
};

NodeParams::NodeParams(GenicamNodes &nodes) : m_nodes(nodes)
{
}

NodeParams::~NodeParams() = default;

// The one Param of a node, made on first sight.
template<class P>
P *NodeParams::GetParam(ByName<P> &params, char const *name, FeatureKind kind, std::int32_t *error)
{
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, name, kind, status);
    StoreStatus(error, status);
    if (!node)
        return nullptr;
    auto const known = params.find(std::string_view(name));
    if (known != params.end())
        return known->second.get();
    return params.emplace(name, std::make_unique<P>(*this, node)).first->second.get();
}

TovCam::EnumParam *NodeParams::GetEnum(char const *name, std::int32_t *error)
{
    return GetParam(m_enumerations, name, FeatureKind::Enumeration, error);
}

TovCam::IntParam *NodeParams::GetInt(char const *name, std::int32_t *error)
{
    return GetParam(m_integers, name, FeatureKind::Integer, error);
}

TovCam::StringParam *NodeParams::GetString(char const *name, std::int32_t *error)
{
    return GetParam(m_strings, name, FeatureKind::String, error);
}

std::int64_t NodeParams::GetInteger(char const *name, std::int32_t *error)
{
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, name, FeatureKind::Integer, status);
    if (node)
        return ReadInteger(node, error);
    StoreStatus(error, status);
    return 0;
}

double NodeParams::GetFloat(char const *name, std::int32_t *error)
{
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, name, FeatureKind::Float, status);
    double value = 0.0;
    if (node && (status = CheckReadable(node)) == TOV_CAM_ERR_OK) {
        ErrorSlot slot;
        value = arv_gc_float_get_value(ARV_GC_FLOAT(node), slot);
        status = slot.Status();
    }
    StoreStatus(error, status);
    return status == TOV_CAM_ERR_OK ? value : 0.0;
}

char const *NodeParams::GetEntry(char const *name, std::int32_t *error)
{
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, name, FeatureKind::Enumeration, status);
    if (node)
        return ReadEntry(node, error);
    StoreStatus(error, status);
    return nullptr;
}

std::int64_t NodeParams::ReadInteger(ArvGcFeatureNode *node, std::int32_t *error)
{
    GenicamNodes::Call const call(m_nodes);
    ErrorSlot slot;
    std::int64_t value = 0;
    std::int32_t status = call.status != TOV_CAM_ERR_OK ? call.status : CheckReadable(node);
    if (status == TOV_CAM_ERR_OK) {
        value = arv_gc_integer_get_value(ARV_GC_INTEGER(node), slot);
        status = slot.Status();
    }
    StoreStatus(error, status);
    return status == TOV_CAM_ERR_OK ? value : 0;
}

char const *NodeParams::ReadEntry(ArvGcFeatureNode *node, std::int32_t *error)
{
    GenicamNodes::Call const call(m_nodes);
    ErrorSlot slot;
    char const *text = nullptr;
    std::int32_t status = call.status != TOV_CAM_ERR_OK ? call.status : CheckReadable(node);
    if (status == TOV_CAM_ERR_OK) {
        text = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), slot);
        status = slot.Status();
        // A register that holds no entry's value.
        if (status == TOV_CAM_ERR_OK && !text)
            status = TOV_CAM_ERR_GENICAM_GENERIC;
    }
    StoreStatus(error, status);
    return status == TOV_CAM_ERR_OK ? m_texts.emplace(text).first->c_str() : nullptr;
}

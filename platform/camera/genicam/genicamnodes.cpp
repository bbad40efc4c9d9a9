#include "genicamnodes.h"

#include "guardedgenicam.h"

GenicamNodes::Call::Call(GenicamNodes &nodes) : m_nodes(nodes), m_lock(nodes.m_access, std::defer_lock)
{
    // A refused call does not wait for one that is under way.
    if (m_nodes.m_refused.load(std::memory_order_acquire))
        return;
    m_lock.lock();
    if (m_nodes.m_refused.load(std::memory_order_acquire))
        return;
    entered = true;
    if (m_nodes.m_depth++ == 0 && m_nodes.m_gate)
        m_nodes.m_refusal = m_nodes.m_gate->Enter();
    status = m_nodes.m_refusal;
}

GenicamNodes::Call::~Call()
{
    if (entered && --m_nodes.m_depth == 0 && m_nodes.m_gate)
        m_nodes.m_gate->Leave();
}

GenicamNodes::GenicamNodes(ArvDevice *device, std::recursive_mutex &access) : m_access(access)
{
    std::lock_guard<std::recursive_mutex> lock(m_access);
    m_genicam = GetGuardedGenicam(device, &m_status);
    if (m_genicam)
        g_object_ref(m_genicam);
}

GenicamNodes::~GenicamNodes()
{
    g_clear_object(&m_genicam);
}

std::int32_t GenicamNodes::GetStatus() const
{
    return m_status;
}

void GenicamNodes::SetGate(AccessGate *gate)
{
    std::lock_guard<std::recursive_mutex> lock(m_access);
    m_gate = gate;
}

void GenicamNodes::Refuse()
{
    m_refused.store(true, std::memory_order_release);
}

void GenicamNodes::Drop()
{
    g_clear_object(&m_genicam);
}

ArvGcFeatureNode *GenicamNodes::Find(Call const &call, char const *name, TovCam::FeatureKind kind, std::int32_t &status)
{
    status = call.status;
    if (status != TOV_CAM_ERR_OK)
        return nullptr;
    status = m_status != TOV_CAM_ERR_OK ? m_status : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
    if (!m_genicam || !name)
        return nullptr;
    ArvGcNode *const node = arv_gc_get_node(m_genicam, name);
    if (!ARV_IS_GC_FEATURE_NODE(node))
        return nullptr;
    ErrorSlot error;
    bool const implemented = arv_gc_feature_node_is_implemented(ARV_GC_FEATURE_NODE(node), error);
    if (!implemented && error.Status() == TOV_CAM_ERR_OK)
        return nullptr;
    status = KindOf(node) == kind ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_PARAM_TYPE;
    return status == TOV_CAM_ERR_OK ? ARV_GC_FEATURE_NODE(node) : nullptr;
}

ArvGcFeatureNode *GenicamNodes::Find(Call const &call, std::uint32_t index, std::int32_t &status)
{
    status = call.status;
    FeatureTree *const tree = status == TOV_CAM_ERR_OK ? GetTree() : nullptr;
    ArvGcFeatureNode *const node = tree ? tree->GetNode(index) : nullptr;
    if (!node && status == TOV_CAM_ERR_OK)
        status = TOV_CAM_ERR_INVALID_INDEX;
    return node;
}

FeatureTree *GenicamNodes::GetTree()
{
    if (FeatureTree *const made = m_publishedTree.load(std::memory_order_acquire))
        return made;
    Call const call(*this);
    if (!call.entered || !m_genicam)
        return nullptr;
    if (!m_tree) {
        m_tree = std::make_unique<FeatureTree>(m_genicam);
        m_publishedTree.store(m_tree.get(), std::memory_order_release);
    }
    return m_tree.get();
}

#include "nodefeatures.h"

#include "noderead.h"
#include "nodewrite.h"

using namespace TovCam;

NodeFeatures::NodeFeatures(GenicamNodes &nodes) : m_nodes(nodes)
{
}

std::int32_t NodeFeatures::GetRole(std::uint32_t index, FeatureRole *role)
{
    *role = {};
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, index, status);
    return node ? ReadRole(node, role) : status;
}

std::int32_t NodeFeatures::ReadValue(std::uint32_t index, FeatureState *state)
{
    *state = {};
    state->access = FeatureAccess::NotAvailable;
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, index, status);
    if (!node)
        return status;
    FeatureRole role;
    status = ReadRole(node, &role);
    if (status != TOV_CAM_ERR_OK)
        return status;
    if (!role.implemented)
        state->access = FeatureAccess::NotImplemented;
    if (!role.available)
        return TOV_CAM_ERR_OK;
    FeatureInfo const &info = *m_nodes.GetTree()->GetInfo(index);
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
    if (readable)
        ::ReadValue(node, info, *state);
    return TOV_CAM_ERR_OK;
}

std::int32_t NodeFeatures::ReadFeature(std::uint32_t index, FeatureState *state)
{
    if (!state)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status = ReadValue(index, state);
    if (status == TOV_CAM_ERR_OK) {
        state->streamLocked = state->access <= FeatureAccess::ReadOnly && IsStreamLocked(call, index);
        if (auto const refused = m_refused.find(index); refused != m_refused.end())
            state->refused = refused->second;
    }
    // A camera that leaves one request unanswered would make the next ones wait as well.
    bool const answers = state->valueStatus == TOV_CAM_ERR_OK || state->valueStatus == TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    if (status != TOV_CAM_ERR_OK || state->access < FeatureAccess::WriteOnly || !answers)
        return status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, index, status);
    if (!node)
        return status;
    FeatureTree &tree = *m_nodes.GetTree();
    FeatureKind const kind = tree.GetInfo(index)->kind;
    if (kind == FeatureKind::Enumeration) {
        std::vector<ArvGcFeatureNode *> const &entries = tree.GetEntryNodes(index);
        for (std::uint32_t i = 0; i < entries.size(); ++i) {
            if (CheckEntry(entries[i]) == TOV_CAM_ERR_OK)
                state->available.push_back(i);
        }
    }
    ReadLimits(node, kind, *state);
    return TOV_CAM_ERR_OK;
}

bool NodeFeatures::IsStreamLocked(GenicamNodes::Call const &call, std::uint32_t index)
{
    FeatureRole role;
    if (!m_nodes.GetTree()->IsLockedWithTransport(index) || GetRole(index, &role) != TOV_CAM_ERR_OK || !role.writable ||
        !role.locked)
        return false;
    std::int32_t status;
    ArvGcFeatureNode *const lock = m_nodes.Find(call, "TLParamsLocked", FeatureKind::Integer, status);
    if (!lock || CheckReadable(lock) != TOV_CAM_ERR_OK)
        return false;
    ErrorSlot error;
    gint64 const locked = arv_gc_integer_get_value(ARV_GC_INTEGER(lock), error);
    return error.Status() == TOV_CAM_ERR_OK && locked != 0;
}

void NodeFeatures::SetRefused(std::map<std::uint32_t, std::vector<RefusedSetting>> refused)
{
    GenicamNodes::Call const call(m_nodes);
    if (call.entered)
        m_refused = std::move(refused);
}

std::int32_t NodeFeatures::WriteFeature(std::uint32_t index, FeatureValue const &value)
{
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, index, status);
    if (!node)
        return status;
    FeatureRole role;
    status = ReadRole(node, &role);
    if (status != TOV_CAM_ERR_OK)
        return status;
    if (!role.writable || role.locked)
        return TOV_CAM_ERR_GENICAM_ACCESS;
    status = WriteValue(node, *m_nodes.GetTree()->GetInfo(index), value);
    if (status == TOV_CAM_ERR_OK)
        m_refused.erase(index);
    return status;
}

std::int32_t NodeFeatures::IsCommandDone(std::uint32_t index, bool *done)
{
    if (!done)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    *done = true;
    GenicamNodes::Call const call(m_nodes);
    std::int32_t status;
    ArvGcFeatureNode *const node = m_nodes.Find(call, index, status);
    if (!node)
        return status;
    return ARV_IS_GC_COMMAND(node) ? ReadCommandDone(node, done) : TOV_CAM_ERR_GENICAM_PARAM_TYPE;
}

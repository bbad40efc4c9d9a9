#include "nodemap.h"

#include "haste.h"
#include "nodefeatures.h"
#include "nodeparams.h"
#include "nodewrite.h"

#include <cstring>
#include <optional>

using TovCam::FeatureKind;

struct NodeMap::Impl
{
    Impl(ArvDevice *device, std::recursive_mutex &access) : nodes(device, access)
    {
    }

    // A node of the kind, found and writable: `write` is called on it.
    template<class Write>
    std::int32_t WriteNode(char const *name, FeatureKind kind, Write write)
    {
        GenicamNodes::Call const call(nodes);
        std::int32_t status;
        ArvGcFeatureNode *const node = nodes.Find(call, name, kind, status);
        if (!node)
            return status;
        status = CheckWritable(node);
        return status == TOV_CAM_ERR_OK ? write(node) : status;
    }

    std::weak_ptr<void> owner;  // set before the map is handed out
    AccessGate *gate = nullptr; // the same
    GenicamNodes nodes;
    NodeParams params{nodes};
    NodeFeatures features{nodes};
};

NodeMap::NodeMap(ArvDevice *device, std::recursive_mutex &access) : m_impl(std::make_unique<Impl>(device, access))
{
}

NodeMap::~NodeMap() = default;

std::int32_t NodeMap::GetStatus() const
{
    return m_impl->nodes.GetStatus();
}

void NodeMap::SetGate(AccessGate *gate)
{
    m_impl->gate = gate;
    m_impl->nodes.SetGate(gate);
}

void NodeMap::SetOwner(std::weak_ptr<void> owner)
{
    m_impl->owner = std::move(owner);
}

void NodeMap::Refuse()
{
    m_impl->nodes.Refuse();
}

void NodeMap::Drop()
{
    m_impl->nodes.Drop();
}

std::shared_ptr<void> NodeMap::Hold()
{
    return m_impl->owner.lock();
}

// ---- Nodes by their names ------------------------------------------------------------------------------------------

TovCam::EnumParam *NodeMap::GetEnum(char const *name, std::int32_t *error)
{
    return m_impl->params.GetEnum(name, error);
}

TovCam::IntParam *NodeMap::GetInt(char const *name, std::int32_t *error)
{
    return m_impl->params.GetInt(name, error);
}

TovCam::StringParam *NodeMap::GetString(char const *name, std::int32_t *error)
{
    return m_impl->params.GetString(name, error);
}

char const *NodeMap::GetEnumValueStr(char const *name, std::int32_t *error)
{
    return m_impl->params.GetEntry(name, error);
}

std::int32_t NodeMap::SetIntegerValue(char const *name, std::int64_t value)
{
    return m_impl->WriteNode(name, FeatureKind::Integer,
                             [value](ArvGcFeatureNode *node) { return WriteInteger(node, value); });
}

std::int64_t NodeMap::GetIntegerValue(char const *name, std::int32_t *error)
{
    return m_impl->params.GetInteger(name, error);
}

std::int32_t NodeMap::ExecuteCommand(char const *name)
{
    std::optional<Haste> haste;
    if (name && (std::strcmp(name, "AcquisitionStop") == 0 || std::strcmp(name, "AcquisitionAbort") == 0))
        haste.emplace(m_impl->gate);
    return m_impl->WriteNode(name, FeatureKind::Command, ExecuteNode);
}

std::int32_t NodeMap::SetEnumValueStr(char const *name, char const *value)
{
    if (!value)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    return m_impl->WriteNode(name, FeatureKind::Enumeration,
                             [value](ArvGcFeatureNode *node) { return WriteEntry(node, value); });
}

std::int32_t NodeMap::SetFloatValue(char const *name, double value)
{
    return m_impl->WriteNode(name, FeatureKind::Float,
                             [value](ArvGcFeatureNode *node) { return WriteFloat(node, value); });
}

double NodeMap::GetFloatValue(char const *name, std::int32_t *error)
{
    return m_impl->params.GetFloat(name, error);
}

std::int32_t NodeMap::SetBooleanValue(char const *name, bool value)
{
    return m_impl->WriteNode(name, FeatureKind::Boolean,
                             [value](ArvGcFeatureNode *node) { return WriteBoolean(node, value); });
}

std::int32_t NodeMap::SetStringValue(char const *name, char const *value)
{
    if (!value)
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    return m_impl->WriteNode(name, FeatureKind::String,
                             [value](ArvGcFeatureNode *node) { return WriteString(node, value); });
}

// ---- Features by their place in the tree ---------------------------------------------------------------------------

std::uint32_t NodeMap::GetFeatureCount()
{
    FeatureTree *const tree = m_impl->nodes.GetTree();
    return tree ? tree->GetCount() : 0;
}

TovCam::FeatureInfo const *NodeMap::GetFeature(std::uint32_t index)
{
    FeatureTree *const tree = m_impl->nodes.GetTree();
    return tree ? tree->GetInfo(index) : nullptr;
}

std::int32_t NodeMap::GetRole(std::uint32_t index, FeatureRole *role)
{
    return m_impl->features.GetRole(index, role);
}

std::int32_t NodeMap::ReadValue(std::uint32_t index, TovCam::FeatureState *state)
{
    return m_impl->features.ReadValue(index, state);
}

std::int32_t NodeMap::ReadFeature(std::uint32_t index, TovCam::FeatureState *state)
{
    return m_impl->features.ReadFeature(index, state);
}

std::int32_t NodeMap::WriteFeature(std::uint32_t index, TovCam::FeatureValue const &value)
{
    return m_impl->features.WriteFeature(index, value);
}

std::int32_t NodeMap::IsCommandDone(std::uint32_t index, bool *done)
{
    return m_impl->features.IsCommandDone(index, done);
}

void NodeMap::SetRefused(std::map<std::uint32_t, std::vector<TovCam::RefusedSetting>> refused)
{
    m_impl->features.SetRefused(std::move(refused));
}

#include "featuregraphbuilder.h"

#include "nodeaccess.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <unordered_map>

using namespace TovCam;

namespace {

FeatureVisibility VisibilityOf(ArvGcPropertyNode *property)
{
    switch (arv_gc_property_node_get_visibility(property, ARV_GC_VISIBILITY_BEGINNER)) {
    case ARV_GC_VISIBILITY_EXPERT:
        return FeatureVisibility::Expert;
    case ARV_GC_VISIBILITY_GURU:
        return FeatureVisibility::Guru;
    case ARV_GC_VISIBILITY_INVISIBLE:
        return FeatureVisibility::Invisible;
    default:
        return FeatureVisibility::Beginner;
    }
}

FeatureRepresentation RepresentationOf(ArvGcPropertyNode *property)
{
    switch (arv_gc_property_node_get_representation(property, ARV_GC_REPRESENTATION_PURE_NUMBER)) {
    case ARV_GC_REPRESENTATION_LINEAR:
        return FeatureRepresentation::Linear;
    case ARV_GC_REPRESENTATION_LOGARITHMIC:
        return FeatureRepresentation::Logarithmic;
    case ARV_GC_REPRESENTATION_BOOLEAN:
        return FeatureRepresentation::Boolean;
    case ARV_GC_REPRESENTATION_HEX_NUMBER:
        return FeatureRepresentation::HexNumber;
    case ARV_GC_REPRESENTATION_IPV4_ADDRESS:
        return FeatureRepresentation::IPV4;
    case ARV_GC_REPRESENTATION_MAC_ADDRESS:
        return FeatureRepresentation::MAC;
    default:
        return FeatureRepresentation::PureNumber;
    }
}

FeatureNotation NotationOf(ArvGcPropertyNode *property)
{
    switch (arv_gc_property_node_get_display_notation(property, ARV_GC_DISPLAY_NOTATION_AUTOMATIC)) {
    case ARV_GC_DISPLAY_NOTATION_FIXED:
        return FeatureNotation::Fixed;
    case ARV_GC_DISPLAY_NOTATION_SCIENTIFIC:
        return FeatureNotation::Scientific;
    default:
        return FeatureNotation::Automatic;
    }
}

// Whoever shows the texts can rely on valid UTF-8.
std::string Text(char const *text)
{
    return text && g_utf8_validate(text, -1, nullptr) ? text : "";
}

std::string TextOf(ArvGcPropertyNode *property)
{
    return Text(arv_gc_property_node_get_string(property, nullptr));
}

std::string NameOf(ArvGcNode *node)
{
    return Text(arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(node)));
}

// Features of the connection rather than the camera, in old descriptions without any "Streamable".
bool BelongsToConnection(std::string const &name)
{
    static constexpr char const *Names[] = {"TLParamsLocked", "GevCCP", "GevHeartbeatTimeout", "GevSCPHostPort",
                                            "GevSCPInterfaceIndex"};
    static constexpr char const *Beginnings[] = {"GevSCDA", "GevMC", "GevPersistent", "GevCurrentIP"};
    return std::find(std::begin(Names), std::end(Names), name) != std::end(Names) ||
           std::any_of(std::begin(Beginnings), std::end(Beginnings),
                       [&name](char const *beginning) { return name.rfind(beginning, 0) == 0; });
}

// From the lock over what is computed from it to the features that use this as their lock, and no further: what is
// computed from a locked feature is not locked by it.
void SpreadTransportLock(FeatureGraph &graph, std::uint32_t lock)
{
    std::vector<bool> seen(graph.nodes.size());
    std::vector<std::uint32_t> open{lock};
    seen[lock] = true;
    auto const visit = [&](std::uint32_t id) {
        if (!seen[id])
            open.push_back(id);
        seen[id] = true;
    };
    for (std::size_t i = 0; i < open.size(); ++i) {
        for (std::uint32_t const id : graph.nodes[open[i]].written)
            visit(id);
    }
    for (std::size_t i = 0; i < open.size(); ++i) {
        for (std::uint32_t const id : graph.nodes[open[i]].dependents) {
            std::vector<std::uint32_t> const &locks = graph.nodes[id].locks;
            if (std::find(locks.begin(), locks.end(), open[i]) == locks.end())
                visit(id);
            else if (id < graph.features.size())
                graph.features[id].lockedWithTransport = true;
        }
    }
}

// Whatever is computed from a node that changes by itself changes with it: the shortest time comes first, and stays.
void SpreadPollingTimes(FeatureGraph &graph)
{
    std::vector<std::uint32_t> polled;
    for (std::uint32_t i = 0; i < graph.nodes.size(); ++i) {
        if (graph.nodes[i].pollingTime > 0)
            polled.push_back(i);
    }
    std::stable_sort(polled.begin(), polled.end(), [&graph](std::uint32_t a, std::uint32_t b) {
        return graph.nodes[a].pollingTime < graph.nodes[b].pollingTime;
    });
    std::vector<bool> done(graph.nodes.size());
    for (std::uint32_t const source : polled) {
        std::uint32_t const time = graph.nodes[source].pollingTime;
        std::vector<std::uint32_t> open{source};
        while (!open.empty()) {
            std::uint32_t const id = open.back();
            open.pop_back();
            if (done[id])
                continue;
            done[id] = true;
            if (id < graph.features.size())
                graph.features[id].info.pollingTime = time;
            open.insert(open.end(), graph.nodes[id].dependents.begin(), graph.nodes[id].dependents.end());
        }
    }
}

class Builder
{
public:
    explicit Builder(FeatureGraph &graph) : m_graph(graph)
    {
    }

    void Build(ArvGc *genicam)
    {
        ArvGcNode *const root = arv_gc_get_node(genicam, "Root");
        if (!ARV_IS_GC_CATEGORY(root))
            return;
        AddFeature(root);
        for (std::uint32_t i = 0; i < m_graph.features.size(); ++i) // grows while categories are looked at
            Describe(i);
        // The nodes that features are made of come after them.
        m_graph.nodes.resize(m_graph.features.size());
        m_drawn.resize(m_nodes.size());
        for (std::uint32_t i = 0; i < m_graph.features.size(); ++i)
            Connect(i);
        for (std::uint32_t i = static_cast<std::uint32_t>(m_graph.features.size()); i < m_nodes.size(); ++i)
            Connect(i);
        for (std::uint32_t i = 0; i < m_graph.features.size(); ++i)
            Finish(i);
        auto const lock = m_ids.find(arv_gc_get_node(genicam, "TLParamsLocked"));
        if (lock != m_ids.end())
            SpreadTransportLock(m_graph, lock->second);
        SpreadPollingTimes(m_graph);
    }

private:
    // What a node passes on to the features that are made of it.
    struct Drawn
    {
        std::optional<FeatureRepresentation> representation;
        std::string unit;
    };

    std::uint32_t AddFeature(ArvGcNode *node)
    {
        auto const [place, isNew] = m_ids.emplace(node, static_cast<std::uint32_t>(m_nodes.size()));
        if (isNew) {
            m_nodes.push_back(node);
            m_graph.features.emplace_back().node = ARV_GC_FEATURE_NODE(node);
        }
        return place->second;
    }

    std::uint32_t AddNode(ArvGcNode *node)
    {
        auto const [place, isNew] = m_ids.emplace(node, static_cast<std::uint32_t>(m_nodes.size()));
        if (isNew) {
            m_nodes.push_back(node);
            m_graph.nodes.emplace_back();
            m_drawn.emplace_back();
        }
        return place->second;
    }

    void Describe(std::uint32_t index)
    {
        ArvGcNode *const node = m_nodes[index];
        FeatureInfo info;
        info.kind = KindOf(node).value_or(FeatureKind::Category); // only nodes of a kind become features
        info.name = NameOf(node);
        std::vector<std::uint32_t> children;
        ForProperties(ARV_DOM_NODE(node), [&](ArvGcPropertyNode *property, ArvGcPropertyNodeType type) {
            switch (type) {
            case ARV_GC_PROPERTY_NODE_TYPE_DISPLAY_NAME:
                info.displayName = TextOf(property);
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_TOOLTIP:
                info.toolTip = TextOf(property);
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_DESCRIPTION:
                info.description = TextOf(property);
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_VISIBILITY:
                info.visibility = VisibilityOf(property);
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_DISPLAY_NOTATION:
                info.notation = NotationOf(property);
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_DISPLAY_PRECISION:
                info.precision = static_cast<std::int32_t>(
                    std::clamp<gint64>(arv_gc_property_node_get_display_precision(property, -1), -1, 17));
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_STREAMABLE:
                info.streamable =
                    arv_gc_property_node_get_streamable(property, ARV_GC_STREAMABLE_NO) == ARV_GC_STREAMABLE_YES;
                m_tellsStreamable = true;
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_P_FEATURE:
                if (info.kind == FeatureKind::Category) {
                    ArvGcNode *const child = arv_gc_property_node_get_linked_node(property);
                    if (ARV_IS_GC_FEATURE_NODE(child) && KindOf(child))
                        children.push_back(AddFeature(child));
                }
                break;
            default:
                break;
            }
        });
        info.children = std::move(children);
        if (info.displayName.empty())
            info.displayName = info.name;
        if (info.kind == FeatureKind::Enumeration)
            AddEntries(m_graph.features[index], info);
        m_graph.features[index].info = std::move(info);
    }

    // Not from ArvGc's list of them, whose order is not guaranteed.
    static void AddEntries(FeatureGraph::Feature &feature, FeatureInfo &info)
    {
        for (ArvDomNode *child = arv_dom_node_get_first_child(ARV_DOM_NODE(feature.node)); child;
             child = arv_dom_node_get_next_sibling(child)) {
            if (!ARV_IS_GC_ENUM_ENTRY(child))
                continue;
            FeatureEntry entry;
            entry.name = NameOf(ARV_GC_NODE(child));
            entry.value = arv_gc_enum_entry_get_value(ARV_GC_ENUM_ENTRY(child), nullptr);
            ForProperties(child, [&entry](ArvGcPropertyNode *property, ArvGcPropertyNodeType type) {
                if (type == ARV_GC_PROPERTY_NODE_TYPE_DISPLAY_NAME)
                    entry.displayName = TextOf(property);
                else if (type == ARV_GC_PROPERTY_NODE_TYPE_TOOLTIP)
                    entry.toolTip = TextOf(property);
                else if (type == ARV_GC_PROPERTY_NODE_TYPE_VISIBILITY)
                    entry.visibility = VisibilityOf(property);
            });
            if (entry.displayName.empty())
                entry.displayName = entry.name;
            info.entries.push_back(std::move(entry));
            feature.entries.push_back(ARV_GC_FEATURE_NODE(child));
        }
    }

    // Draws the edges from a node to all that it refers to.
    void Connect(std::uint32_t id)
    {
        ArvDomNode *const node = ARV_DOM_NODE(m_nodes[id]);
        ConnectProperties(id, node);
        if (ARV_IS_GC_ENUMERATION(node)) {
            for (GSList const *i = arv_gc_enumeration_get_entries(ARV_GC_ENUMERATION(node)); i; i = i->next)
                ConnectProperties(id, ARV_DOM_NODE(i->data));
        } else if (ARV_IS_GC_STRUCT_ENTRY_NODE(node)) {
            if (ArvDomNode *const structure = arv_dom_node_get_parent_node(node))
                ConnectProperties(id, structure);
        }
    }

    void ConnectProperties(std::uint32_t id, ArvDomNode *node)
    {
        ForProperties(node, [&](ArvGcPropertyNode *property, ArvGcPropertyNodeType type) {
            switch (type) {
            case ARV_GC_PROPERTY_NODE_TYPE_REPRESENTATION:
                m_drawn[id].representation = RepresentationOf(property);
                return;
            case ARV_GC_PROPERTY_NODE_TYPE_UNIT:
                m_drawn[id].unit = TextOf(property);
                return;
            case ARV_GC_PROPERTY_NODE_TYPE_POLLING_TIME:
                m_graph.nodes[id].pollingTime = static_cast<std::uint32_t>(std::clamp<gint64>(
                    arv_gc_property_node_get_int64(property, nullptr), 0, std::numeric_limits<std::uint32_t>::max()));
                return;
            case ARV_GC_PROPERTY_NODE_TYPE_P_FEATURE:
            case ARV_GC_PROPERTY_NODE_TYPE_P_PORT:
                return;
            default:
                break;
            }
            if (type < ARV_GC_PROPERTY_NODE_TYPE_P_UNKNONW)
                return;
            ArvGcNode *const linked = arv_gc_property_node_get_linked_node(property);
            if (!ARV_IS_GC_FEATURE_NODE(linked))
                return;
            std::uint32_t const other = AddNode(linked);
            switch (type) {
            case ARV_GC_PROPERTY_NODE_TYPE_P_SELECTED:
                // What is selected follows its selector.
                m_graph.nodes[id].dependents.push_back(other);
                if (id < m_graph.features.size() && other < m_graph.features.size())
                    m_graph.features[id].info.selected.push_back(other);
                return;
            case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE:
            case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_INDEXED:
            case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE_DEFAULT:
                m_graph.nodes[id].written.push_back(other);
                break;
            case ARV_GC_PROPERTY_NODE_TYPE_P_IS_LOCKED:
                m_graph.nodes[id].locks.push_back(other);
                break;
            default:
                break;
            }
            m_graph.nodes[other].dependents.push_back(id);
        });
    }

    void Finish(std::uint32_t index)
    {
        FeatureInfo &info = m_graph.features[index].info;
        // What a feature does not declare itself is taken from what its value comes from.
        std::uint32_t id = index;
        std::optional<FeatureRepresentation> representation;
        for (int links = 0; links < 10; ++links) {
            if (!representation)
                representation = m_drawn[id].representation;
            if (info.unit.empty())
                info.unit = m_drawn[id].unit;
            if (m_graph.nodes[id].written.empty())
                break;
            id = m_graph.nodes[id].written.front();
        }
        info.representation = representation.value_or(FeatureRepresentation::PureNumber);
        bool const isValue = info.kind == FeatureKind::Integer || info.kind == FeatureKind::Float ||
                             info.kind == FeatureKind::Boolean || info.kind == FeatureKind::Enumeration ||
                             info.kind == FeatureKind::String;
        if (!m_tellsStreamable)
            info.streamable = isValue && !BelongsToConnection(info.name);
        else
            info.streamable = info.streamable && (isValue || info.kind == FeatureKind::Register);
    }

    FeatureGraph &m_graph;
    std::vector<ArvGcNode *> m_nodes; // by their ids
    std::unordered_map<ArvGcNode *, std::uint32_t> m_ids;
    std::vector<Drawn> m_drawn;
    bool m_tellsStreamable = false;
};

} // namespace

FeatureGraph BuildFeatureGraph(ArvGc *genicam)
{
    FeatureGraph graph;
    Builder(graph).Build(genicam);
    return graph;
}

#include "featuretree.h"

#include "featuregraphbuilder.h"

#include <algorithm>

using namespace TovCam;

namespace {

// All searches for dependents together. A camera with thousands of features needs less than a hundredth; in a
// description made to be slow, the features asked for last have only what they select as dependents.
constexpr std::uint64_t MaxSteps = 20'000'000;

} // namespace

FeatureTree::FeatureTree(ArvGc *genicam)
    : m_graph(BuildFeatureGraph(genicam)),
      m_hasDependents(m_graph.features.size()),
      m_seen(m_graph.nodes.size())
{
}

std::uint32_t FeatureTree::GetCount() const
{
    return static_cast<std::uint32_t>(m_graph.features.size());
}

FeatureInfo const *FeatureTree::GetInfo(std::uint32_t index)
{
    if (index >= m_graph.features.size())
        return nullptr;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_hasDependents[index])
        FindDependents(index);
    return &m_graph.features[index].info;
}

ArvGcFeatureNode *FeatureTree::GetNode(std::uint32_t index) const
{
    return index < m_graph.features.size() ? m_graph.features[index].node : nullptr;
}

std::vector<ArvGcFeatureNode *> const &FeatureTree::GetEntryNodes(std::uint32_t index) const
{
    return m_graph.features[index].entries;
}

bool FeatureTree::IsLockedWithTransport(std::uint32_t index) const
{
    return index < m_graph.features.size() && m_graph.features[index].lockedWithTransport;
}

// With m_mutex held.
void FeatureTree::FindDependents(std::uint32_t index)
{
    FeatureInfo &info = m_graph.features[index].info;
    m_hasDependents[index] = true;
    if (m_steps > MaxSteps) {
        info.dependents = info.selected;
        return;
    }
    std::vector<std::uint32_t> open{index};
    ++m_search;
    m_seen[index] = m_search;
    auto const visit = [&](std::uint32_t id) {
        ++m_steps;
        if (m_seen[id] == m_search)
            return;
        m_seen[id] = m_search;
        open.push_back(id);
    };
    // What the write changes, and then all that looks at it.
    for (std::size_t i = 0; i < open.size(); ++i) {
        for (std::uint32_t const id : m_graph.nodes[open[i]].written)
            visit(id);
    }
    for (std::size_t i = 0; i < open.size(); ++i) {
        if (open[i] < m_graph.features.size() && open[i] != index)
            info.dependents.push_back(open[i]);
        for (std::uint32_t const id : m_graph.nodes[open[i]].dependents)
            visit(id);
    }
    std::sort(info.dependents.begin(), info.dependents.end());
}

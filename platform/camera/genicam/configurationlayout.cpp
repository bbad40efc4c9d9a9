#include "configurationlayout.h"

#include "storedvalue.h"

#include <algorithm>
#include <limits>
#include <set>

using namespace TovCam;

namespace {

// Of one feature. Cameras have four at most; a feature with more is stored as if it had none.
constexpr std::size_t MaxSelectors = 16;

} // namespace

ConfigurationLayout::ConfigurationLayout(NodeMap &nodes) : m_nodes(nodes), m_selectorsOf(nodes.GetFeatureCount())
{
    for (std::uint32_t i = 0; i < m_selectorsOf.size(); ++i)
        m_byName.emplace(Info(i).name, i);
    FindSelectors();
}

void ConfigurationLayout::FindSelectors()
{
    auto const count = static_cast<std::uint32_t>(m_selectorsOf.size());
    std::vector<std::vector<std::uint32_t>> direct(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!IsSelector(i))
            continue;
        m_selectors.push_back(i);
        for (std::uint32_t const selected : Info(i).selected)
            direct[selected].push_back(i);
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        if (direct[i].empty() || !(IsSelector(i) || Info(i).streamable))
            continue;
        std::vector<std::uint32_t> &all = m_selectorsOf[i];
        all = direct[i];
        for (std::size_t k = 0; k < all.size() && all.size() <= MaxSelectors; ++k) {
            for (std::uint32_t const outer : direct[all[k]]) {
                if (outer != i && std::find(all.begin(), all.end(), outer) == all.end())
                    all.push_back(outer);
                if (all.size() > MaxSelectors)
                    break;
            }
        }
        if (all.size() > MaxSelectors)
            all.clear();
    }
    for (std::vector<std::uint32_t> &selectors : m_selectorsOf)
        SortOuterFirst(selectors);
    SortOuterFirst(m_selectors);
}

NodeMap &ConfigurationLayout::GetNodes() const
{
    return m_nodes;
}

FeatureInfo const &ConfigurationLayout::Info(std::uint32_t index) const
{
    return *m_nodes.GetFeature(index);
}

std::optional<std::uint32_t> ConfigurationLayout::Find(std::string const &name) const
{
    auto const found = m_byName.find(name);
    return found == m_byName.end() ? std::nullopt : std::optional(found->second);
}

bool ConfigurationLayout::IsSelector(std::uint32_t index) const
{
    FeatureInfo const &info = Info(index);
    return !info.selected.empty() && (info.kind == FeatureKind::Integer || info.kind == FeatureKind::Enumeration ||
                                      info.kind == FeatureKind::Boolean);
}

bool ConfigurationLayout::IsStored(std::uint32_t index) const
{
    return Info(index).streamable && !IsSelector(index) && IsPlainName(Info(index).name);
}

std::vector<std::uint32_t> const &ConfigurationLayout::GetSelectors() const
{
    return m_selectors;
}

std::vector<std::uint32_t> const &ConfigurationLayout::GetSelectorsOf(std::uint32_t index) const
{
    return m_selectorsOf[index];
}

bool ConfigurationLayout::DependsOn(std::uint32_t feature, std::uint32_t other) const
{
    std::vector<std::uint32_t> const &all = Info(other).dependents;
    return std::binary_search(all.begin(), all.end(), feature);
}

std::vector<std::uint32_t> ConfigurationLayout::InOrder(std::vector<std::uint32_t> const &features) const
{
    constexpr std::uint32_t Nowhere = std::numeric_limits<std::uint32_t>::max();
    std::vector<std::uint32_t> places(m_selectorsOf.size(), Nowhere); // in `features`
    for (std::uint32_t i = 0; i < features.size(); ++i)
        places[features[i]] = i;
    std::vector<int> waiting(features.size()); // for how many
    std::vector<std::vector<std::uint32_t>> followers(features.size());
    for (std::uint32_t i = 0; i < features.size(); ++i) {
        for (std::uint32_t const other : Info(features[i]).dependents) {
            if (places[other] == Nowhere || other == features[i] || DependsOn(features[i], other))
                continue;
            followers[i].push_back(places[other]);
            ++waiting[places[other]];
        }
    }
    std::vector<std::uint32_t> order;
    std::set<std::uint32_t> ready, rest; // in the order of the description, as `features` are
    for (std::uint32_t i = 0; i < features.size(); ++i) {
        rest.insert(rest.end(), i);
        if (waiting[i] == 0)
            ready.insert(ready.end(), i);
    }
    while (!rest.empty()) {
        std::uint32_t const next = ready.empty() ? *rest.begin() : *ready.begin();
        ready.erase(next);
        rest.erase(next);
        order.push_back(features[next]);
        for (std::uint32_t const other : followers[next]) {
            if (--waiting[other] == 0 && rest.contains(other))
                ready.insert(other);
        }
    }
    return order;
}

// A selector with more selectors of its own is further in.
void ConfigurationLayout::SortOuterFirst(std::vector<std::uint32_t> &selectors) const
{
    std::sort(selectors.begin(), selectors.end(), [this](std::uint32_t a, std::uint32_t b) {
        return std::pair(m_selectorsOf[a].size(), a) < std::pair(m_selectorsOf[b].size(), b);
    });
}

// Takes a configuration from a camera: walks its selectors, and reads what is stored at each of their values.
#include "configuration.h"
#include "selectorguard.h"
#include "storedvalue.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

using namespace TovCam;

namespace {

constexpr std::uint64_t MaxCombinations = 4096; // of the values of selectors, for one feature
// Selectors, their entries and features that are looked at for all combinations together, now and when the file is
// loaded. Four tables of 4096 values, as in the largest cameras, need two thirds; what is beyond is not in the file.
constexpr std::uint64_t MaxLooks = 100'000;

// What TLParamsLocked locks now. While frames run the format is locked, and belongs in the file all the same; what
// another feature locks has no effect at present.
std::set<std::uint32_t> LockedByTransport(ConfigurationLayout const &layout)
{
    std::int32_t error = TOV_CAM_ERR_OK;
    auto const index = layout.Find("TLParamsLocked");
    if (!index || layout.GetNodes().GetIntegerValue("TLParamsLocked", &error) == 0 || error != TOV_CAM_ERR_OK)
        return {};
    std::vector<std::uint32_t> const &all = layout.Info(*index).dependents;
    return {all.begin(), all.end()};
}

// Features with the same selectors.
struct FeatureList
{
    std::vector<std::uint32_t> selectors; // outer ones first
    std::vector<std::uint32_t> features;  // in the order to apply
};

// Those without selectors first, then in the order of the description.
std::vector<FeatureList> StoredFeatures(ConfigurationLayout const &layout)
{
    std::vector<FeatureList> lists;
    std::map<std::vector<std::uint32_t>, std::size_t> places;
    for (std::uint32_t i = 0; i < layout.GetNodes().GetFeatureCount(); ++i) {
        if (!layout.IsStored(i))
            continue;
        std::vector<std::uint32_t> const &selectors = layout.GetSelectorsOf(i);
        auto const [place, isNew] = places.emplace(selectors, lists.size());
        if (isNew)
            lists.push_back({selectors, {}});
        lists[place->second].features.push_back(i);
    }
    for (FeatureList &list : lists)
        list.features = layout.InOrder(list.features);
    std::stable_partition(lists.begin(), lists.end(), [](FeatureList const &one) { return one.selectors.empty(); });
    return lists;
}

// The values that a selector can have now; only the present one of a table too large to walk.
std::vector<FeatureValue> ChoicesOf(FeatureInfo const &info, FeatureState const &state)
{
    std::vector<FeatureValue> choices;
    if (state.access == FeatureAccess::ReadOnly)
        return {state.value};
    if (info.kind == FeatureKind::Enumeration) {
        std::set<std::string_view> names; // of entries with the same name the first one is what is set
        for (std::uint32_t const entry : state.available) {
            if (names.insert(info.entries[entry].name).second)
                choices.emplace_back().text = info.entries[entry].name;
        }
        return choices;
    }
    std::int64_t const last = info.kind == FeatureKind::Boolean ? 1 : state.maximum;
    std::int64_t value = info.kind == FeatureKind::Boolean ? 0 : state.minimum;
    std::uint64_t const steps = (static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(value)) /
                                static_cast<std::uint64_t>(state.increment);
    if (value > last || steps >= MaxCombinations)
        return {state.value};
    for (std::uint64_t k = 0; k <= steps; ++k, value += state.increment)
        choices.emplace_back().integer = value;
    return choices;
}

class Taker
{
public:
    Taker(ConfigurationLayout const &layout, std::vector<Configuration::Group> &groups,
          std::function<bool()> const &cancel)
        : m_cancel(cancel),
          m_layout(layout),
          m_guard(layout),
          m_lockedByTransport(LockedByTransport(layout)),
          m_groups(groups)
    {
    }

    // 0, TOV_CAM_ERR_NO_DEVICE, or TOV_CAM_ERR_GENICAM_GENERIC where a selector does not take its value.
    std::int32_t Run()
    {
        std::int32_t status = TOV_CAM_ERR_OK;
        for (FeatureList const &list : StoredFeatures(m_layout)) {
            m_combinations = 0;
            status = Walk(list, 0);
            if (status != TOV_CAM_ERR_OK)
                break;
        }
        std::int32_t const back = m_guard.PutBack(&disobedient);
        if (status == TOV_CAM_ERR_OK && back != TOV_CAM_ERR_OK)
            status = back == TOV_CAM_ERR_NO_DEVICE ? back : TOV_CAM_ERR_GENICAM_GENERIC;
        return status;
    }

    std::vector<std::pair<std::string, std::string>> GetSelectors() const
    {
        std::vector<std::pair<std::string, std::string>> selectors;
        for (auto const &[index, value] : m_guard.GetValues()) {
            FeatureInfo const &info = m_layout.Info(index);
            auto text = ToStoredText(info.kind, value);
            if (text && IsPlainName(info.name))
                selectors.emplace_back(info.name, std::move(*text));
        }
        return selectors;
    }

    RefusedByFeature disobedient; // selectors

private:
    // What has no selector is read whatever else there is.
    bool IsEnough(FeatureList const &list) const
    {
        return m_combinations > MaxCombinations || (m_looks > MaxLooks && !list.selectors.empty());
    }

    // The features at each value of the selectors from `depth` on.
    std::int32_t Walk(FeatureList const &list, std::size_t depth)
    {
        if (IsEnough(list))
            return TOV_CAM_ERR_OK;
        if (depth == list.selectors.size())
            return TakeGroup(list.features);
        std::uint32_t const selector = list.selectors[depth];
        FeatureInfo const &info = m_layout.Info(selector);
        FeatureState state;
        m_looks += 1 + info.entries.size();
        std::int32_t status = m_layout.GetNodes().ReadFeature(selector, &state);
        if (status != TOV_CAM_ERR_OK)
            return status;
        if (state.access < FeatureAccess::ReadOnly)
            return Walk(list, depth + 1); // as if there were no such selector
        for (FeatureValue const &choice : ChoicesOf(info, state)) {
            auto text = ToStoredText(info.kind, choice);
            if (!text || !IsPlainName(info.name))
                continue;
            if (IsEnough(list))
                break;
            ++m_looks;
            if (status = m_guard.Set(selector, choice); status != TOV_CAM_ERR_OK)
                return Disobeyed({selector, {info.name, {}, *text, {}, status}});
            m_group.selectors.emplace_back(info.name, std::move(*text));
            status = Walk(list, depth + 1);
            m_group.selectors.pop_back();
            if (status != TOV_CAM_ERR_OK)
                return status;
        }
        // A selector may have a value of its own for each value of an outer one.
        if (state.access == FeatureAccess::ReadWrite && state.valueStatus == TOV_CAM_ERR_OK &&
            m_guard.Set(selector, state.value) != TOV_CAM_ERR_OK)
            return Disobeyed({selector, {info.name, {}, {}, {}, TOV_CAM_ERR_GENICAM_GENERIC}});
        return TOV_CAM_ERR_OK;
    }

    std::int32_t Disobeyed(RefusedByFeature::value_type refused)
    {
        std::int32_t const status = refused.second.status;
        disobedient.push_back(std::move(refused));
        return status == TOV_CAM_ERR_NO_DEVICE ? status : TOV_CAM_ERR_GENICAM_GENERIC;
    }

    // The features as they are with the selectors as they are.
    std::int32_t TakeGroup(std::vector<std::uint32_t> const &features)
    {
        ++m_combinations;
        m_looks += features.size() + m_group.selectors.size();
        m_group.values.clear();
        for (std::uint32_t const index : features) {
            if (m_cancel && m_cancel())
                return TOV_CAM_ERR_NO_DEVICE;
            // One feature that cannot be read does not keep the others from the file; a camera that is gone does.
            if (TakeValue(index) == TOV_CAM_ERR_NO_DEVICE)
                return TOV_CAM_ERR_NO_DEVICE;
        }
        if (!m_group.values.empty())
            m_groups.push_back(m_group);
        return TOV_CAM_ERR_OK;
    }

    std::int32_t TakeValue(std::uint32_t index)
    {
        FeatureRole role;
        FeatureState state;
        std::int32_t status = m_layout.GetNodes().GetRole(index, &role);
        if (status != TOV_CAM_ERR_OK || !role.available || !role.writable ||
            (role.locked && !m_lockedByTransport.contains(index)))
            return status;
        status = m_layout.GetNodes().ReadValue(index, &state);
        if (status == TOV_CAM_ERR_OK)
            status = state.valueStatus;
        if (status != TOV_CAM_ERR_OK || state.access < FeatureAccess::ReadOnly)
            return status;
        FeatureInfo const &info = m_layout.Info(index);
        if (auto text = ToStoredText(info.kind, state.value))
            m_group.values.emplace_back(info.name, std::move(*text));
        return TOV_CAM_ERR_OK;
    }

    std::function<bool()> const &m_cancel;
    ConfigurationLayout const &m_layout;
    SelectorGuard m_guard;
    std::set<std::uint32_t> const m_lockedByTransport;
    std::vector<Configuration::Group> &m_groups;
    Configuration::Group m_group;     // at the present selectors
    std::uint64_t m_combinations = 0; // of the present list
    std::uint64_t m_looks = 0;
};

} // namespace

std::int32_t Configuration::Take(NodeMap &nodes)
{
    groups.clear();
    ConfigurationLayout const layout(nodes);
    Taker taker(layout, groups, cancel);
    selectors = taker.GetSelectors();
    std::int32_t const status = taker.Run();
    if (status == TOV_CAM_ERR_GENICAM_GENERIC && !taker.disobedient.empty()) {
        report.problem = ConfigurationReport::Problem::Selector;
        report.refused = {taker.disobedient.front().second};
    }
    return status;
}

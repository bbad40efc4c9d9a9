// Applies a configuration to a camera.
#include "configuration.h"
#include "selectorguard.h"
#include "storedvalue.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>

using namespace TovCam;

namespace {

constexpr int MaxPasses = 10;

struct Target
{
    std::uint32_t index;
    FeatureValue value;
    std::string text;         // as the file has it
    std::int32_t status = 0;  // as the last pass found it: 1 where the camera has another value
    std::int32_t refusal = 0; // of the last attempt to write it
    std::string present;      // the camera's value, once the last pass of all is through
    bool streamLocked = false;
};

struct TargetGroup
{
    std::vector<Target> selectors, values;
};

// Brings one feature to its value: 0 where it has it already, 1 where it was changed, or why it could not be.
std::int32_t Bring(ConfigurationLayout const &layout, Target const &target, bool write)
{
    NodeMap &nodes = layout.GetNodes();
    FeatureKind const kind = layout.Info(target.index).kind;
    FeatureState state;
    auto const has = [&] {
        std::int32_t const status = nodes.ReadValue(target.index, &state);
        if (status != TOV_CAM_ERR_OK)
            return status;
        if (state.access == FeatureAccess::NotImplemented)
            return std::int32_t{TOV_CAM_ERR_OK}; // counts as unknown
        if (state.access < FeatureAccess::ReadOnly)
            return std::int32_t{TOV_CAM_ERR_GENICAM_ACCESS};
        if (state.valueStatus != TOV_CAM_ERR_OK)
            return state.valueStatus;
        return IsSameValue(kind, state.value, target.value) ? std::int32_t{TOV_CAM_ERR_OK} : 1;
    };
    std::int32_t status = has();
    if (status == TOV_CAM_ERR_OK || status == TOV_CAM_ERR_NO_DEVICE || !write)
        return status;
    status = nodes.WriteFeature(target.index, target.value);
    if (status != TOV_CAM_ERR_OK || kind != FeatureKind::Float)
        return status == TOV_CAM_ERR_OK ? 1 : status;
    // On its way through the camera's formulas a number may come out a hair below or above the file's.
    for (double const nudge : {4.0, -4.0}) {
        if (has() != 1)
            break;
        FeatureValue value = target.value;
        value.real *= 1.0 + nudge * std::numeric_limits<double>::epsilon();
        nodes.WriteFeature(target.index, value);
    }
    return 1;
}

// The settings of a file that apply to this camera.
class Targets
{
public:
    Targets(ConfigurationLayout const &layout, Configuration const &configuration, bool sameCamera) : m_layout(layout)
    {
        auto const isSelector = [&](std::uint32_t index) {
            return layout.IsSelector(index);
        };
        for (Configuration::Group const &group : configuration.groups) {
            TargetGroup resolved;
            bool known = true;
            for (auto const &[name, text] : group.selectors) {
                if (auto target = Resolve(name, text, isSelector))
                    resolved.selectors.push_back(std::move(*target));
                else
                    known = false;
            }
            for (auto const &[name, text] : group.values) {
                // A camera keeps its own name, whichever camera's settings it gets.
                if (!sameCamera && (name == "DeviceUserID" || name == "DeviceUserDefinedName"))
                    continue;
                if (auto target = Resolve(name, text, [&](std::uint32_t index) { return layout.IsStored(index); }))
                    resolved.values.push_back(std::move(*target));
            }
            if (known && !resolved.values.empty())
                groups.push_back(std::move(resolved));
        }
        for (auto const &[name, text] : configuration.selectors) {
            if (auto target = Resolve(name, text, isSelector))
                finals.push_back(std::move(*target));
        }
    }

    std::vector<TargetGroup> groups;
    std::vector<Target> finals; // the selectors themselves
    // The first value that does not fit its feature.
    std::optional<RefusedSetting> misunderstood;

private:
    template<class Wanted>
    std::optional<Target> Resolve(std::string const &name, std::string const &text, Wanted const &wanted)
    {
        auto const index = m_layout.Find(name);
        if (!index || !wanted(*index))
            return std::nullopt;
        if (auto value = FromStoredText(m_layout.Info(*index).kind, text))
            return Target{*index, std::move(*value), text, 0, 0, {}, false};
        if (!misunderstood)
            misunderstood = RefusedSetting{name, {}, text, {}, TOV_CAM_ERR_WRONG_CONFIGURATION};
        return std::nullopt;
    }

    ConfigurationLayout const &m_layout;
};

class Applier
{
public:
    Applier(ConfigurationLayout const &layout, Targets &targets, std::function<bool()> const &cancel)
        : m_layout(layout),
          m_targets(targets),
          m_guard(layout),
          m_cancel(cancel)
    {
    }

    // 0, or why the first of the failed settings failed.
    std::int32_t Run()
    {
        // A value may be refused as long as another one is in its way, and may change others: once more, until that no
        // longer helps.
        std::int32_t why = TOV_CAM_ERR_OK;
        std::size_t best = std::numeric_limits<std::size_t>::max();
        int idle = 0;
        for (int i = 0; i < MaxPasses && idle < 2 && why != TOV_CAM_ERR_NO_DEVICE; ++i) {
            std::size_t const different = Pass(true, why);
            if (different == 0)
                break;
            idle = different < best ? 0 : idle + 1;
            best = std::min(best, different);
        }
        std::int32_t left = TOV_CAM_ERR_OK;
        if (why != TOV_CAM_ERR_OK && why != TOV_CAM_ERR_NO_DEVICE) {
            if (Pass(false, left) == 0)
                why = TOV_CAM_ERR_OK;
            else if (left != TOV_CAM_ERR_NO_DEVICE)
                CollectRefused();
        }
        for (Target const &target : m_targets.finals)
            m_guard.SetFinal(target.index, target.value);
        std::int32_t const back = m_guard.PutBack(&refused);
        if (why == TOV_CAM_ERR_OK)
            why = back;
        if (why == TOV_CAM_ERR_NO_DEVICE)
            refused.clear();
        // Taken, but not kept.
        return why > 0 ? static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_GENERIC) : why;
    }

    RefusedByFeature refused;

private:
    // How many features differ from the file when their turn comes, and why the first of them does.
    std::size_t Pass(bool write, std::int32_t &why)
    {
        std::size_t different = 0;
        why = TOV_CAM_ERR_OK;
        for (TargetGroup &group : m_targets.groups) {
            // Selectors that have a value of their own for each value of an outer one.
            std::vector<std::pair<std::uint32_t, FeatureValue>> inner;
            std::int32_t const selected = Select(group, inner);
            for (Target &target : group.values) {
                if (m_cancel && m_cancel()) {
                    why = TOV_CAM_ERR_NO_DEVICE;
                    return different + 1;
                }
                target.status = selected != TOV_CAM_ERR_OK ? selected : Bring(m_layout, target, write);
                if (write)
                    target.refusal = target.status;
                if (target.status == TOV_CAM_ERR_OK)
                    continue;
                ++different;
                if (why == TOV_CAM_ERR_OK || target.status == TOV_CAM_ERR_NO_DEVICE)
                    why = target.status;
                if (why == TOV_CAM_ERR_NO_DEVICE)
                    return different;
                if (!write && selected == TOV_CAM_ERR_OK)
                    Describe(target);
            }
            for (auto i = inner.rbegin(); i != inner.rend(); ++i)
                m_guard.Set(i->first, i->second);
        }
        return different;
    }

    std::int32_t Select(TargetGroup const &group, std::vector<std::pair<std::uint32_t, FeatureValue>> &inner)
    {
        for (Target const &selector : group.selectors) {
            FeatureState state;
            if (!m_layout.GetSelectorsOf(selector.index).empty() &&
                m_layout.GetNodes().ReadValue(selector.index, &state) == TOV_CAM_ERR_OK &&
                state.access == FeatureAccess::ReadWrite && state.valueStatus == TOV_CAM_ERR_OK)
                inner.emplace_back(selector.index, state.value);
            if (std::int32_t const status = m_guard.Set(selector.index, selector.value); status != TOV_CAM_ERR_OK)
                return status;
        }
        return TOV_CAM_ERR_OK;
    }

    // What the camera has instead, while its selectors have the file's values.
    void Describe(Target &target)
    {
        FeatureState state;
        if (m_layout.GetNodes().ReadFeature(target.index, &state) != TOV_CAM_ERR_OK)
            return;
        target.streamLocked = state.streamLocked;
        if (state.access >= FeatureAccess::ReadOnly && state.valueStatus == TOV_CAM_ERR_OK)
            target.present = ToStoredText(m_layout.Info(target.index).kind, state.value).value_or("");
    }

    void CollectRefused()
    {
        for (TargetGroup const &group : m_targets.groups) {
            std::string selectors;
            for (Target const &selector : group.selectors)
                selectors += (selectors.empty() ? "" : " ") + m_layout.Info(selector.index).name + '=' + selector.text;
            for (Target const &target : group.values) {
                if (target.status == TOV_CAM_ERR_OK)
                    continue;
                std::int32_t const why = target.status < 0 ? target.status : std::min(target.refusal, 0);
                refused.push_back({target.index,
                                   {m_layout.Info(target.index).name, selectors, target.text, target.present, why,
                                    target.streamLocked}});
            }
        }
    }

    ConfigurationLayout const &m_layout;
    Targets &m_targets;
    SelectorGuard m_guard;
    std::function<bool()> const &m_cancel;
};

} // namespace

std::int32_t Configuration::Apply(NodeMap &nodes, bool sameCamera)
{
    nodes.SetRefused({});
    ConfigurationLayout const layout(nodes);
    // Everything is understood before anything is written.
    Targets targets(layout, *this, sameCamera);
    if (targets.misunderstood) {
        report.problem = ConfigurationReport::Problem::NoValue;
        report.refused = {*targets.misunderstood};
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    }
    Applier applier(layout, targets, cancel);
    std::int32_t const status = applier.Run();
    report.settings = targets.finals.size();
    for (TargetGroup const &group : targets.groups)
        report.settings += group.values.size();
    std::map<std::uint32_t, std::vector<RefusedSetting>> byFeature;
    for (auto &[index, setting] : applier.refused) {
        report.refused.push_back(setting);
        byFeature[index].push_back(std::move(setting));
    }
    nodes.SetRefused(std::move(byFeature));
    return status;
}

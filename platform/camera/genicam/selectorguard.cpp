#include "selectorguard.h"

#include "storedvalue.h"

#include <algorithm>

using namespace TovCam;

SelectorGuard::SelectorGuard(ConfigurationLayout const &layout) : m_layout(layout)
{
    for (std::uint32_t const index : layout.GetSelectors()) {
        FeatureState state;
        if (layout.GetNodes().ReadValue(index, &state) == TOV_CAM_ERR_OK && state.access == FeatureAccess::ReadWrite &&
            state.valueStatus == TOV_CAM_ERR_OK)
            m_values.emplace_back(index, state.value);
    }
}

SelectorGuard::~SelectorGuard()
{
    if (!m_moved)
        return;
    for (auto const &[index, value] : m_values)
        m_layout.GetNodes().WriteFeature(index, value);
}

std::int32_t SelectorGuard::Set(std::uint32_t index, FeatureValue const &value)
{
    FeatureState state;
    std::int32_t const status = m_layout.GetNodes().ReadValue(index, &state);
    if (status == TOV_CAM_ERR_OK && state.access >= FeatureAccess::ReadOnly && state.valueStatus == TOV_CAM_ERR_OK &&
        IsSameValue(m_layout.Info(index).kind, state.value, value))
        return TOV_CAM_ERR_OK;
    m_moved = true;
    return status == TOV_CAM_ERR_OK ? m_layout.GetNodes().WriteFeature(index, value) : status;
}

void SelectorGuard::SetFinal(std::uint32_t index, FeatureValue const &value)
{
    auto const known =
        std::find_if(m_values.begin(), m_values.end(), [index](auto const &one) { return one.first == index; });
    if (known != m_values.end())
        known->second = value;
    m_moved = true;
}

std::int32_t SelectorGuard::PutBack(RefusedByFeature *refused)
{
    std::int32_t first = TOV_CAM_ERR_OK;
    for (auto const &[index, value] : m_values) {
        std::int32_t const status = Set(index, value);
        if (first != TOV_CAM_ERR_OK || status == TOV_CAM_ERR_OK)
            continue;
        first = status;
        FeatureInfo const &info = m_layout.Info(index);
        refused->push_back({index, {info.name, {}, ToStoredText(info.kind, value).value_or(""), {}, status}});
    }
    m_moved = false;
    return first;
}

std::vector<std::pair<std::uint32_t, FeatureValue>> const &SelectorGuard::GetValues() const
{
    return m_values;
}

// Moves a camera's selectors while a configuration is taken or applied, and puts them back.
#pragma once

#include "configurationlayout.h"

#include <utility>
#include <vector>

// Settings that a camera did not take, by the index of their feature.
using RefusedByFeature = std::vector<std::pair<std::uint32_t, TovCam::RefusedSetting>>;

// Notes the selectors when it is made. PutBack puts them back, or the destructor where one was moved.
class SelectorGuard
{
public:
    explicit SelectorGuard(ConfigurationLayout const &layout); // which outlives it
    ~SelectorGuard();
    SelectorGuard(SelectorGuard const &) = delete;
    SelectorGuard &operator=(SelectorGuard const &) = delete;

    // 0 when the selector has the value.
    std::int32_t Set(std::uint32_t index, TovCam::FeatureValue const &value);
    // What a selector gets at the end, in place of what it had.
    void SetFinal(std::uint32_t index, TovCam::FeatureValue const &value);
    // At once, instead of at the end: 0, or why the first one failed, which is added to `refused`.
    std::int32_t PutBack(RefusedByFeature *refused);
    // What they get at the end, outer ones first.
    std::vector<std::pair<std::uint32_t, TovCam::FeatureValue>> const &GetValues() const;

private:
    ConfigurationLayout const &m_layout;
    std::vector<std::pair<std::uint32_t, TovCam::FeatureValue>> m_values;
    bool m_moved = false;
};

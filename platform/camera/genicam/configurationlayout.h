// The features of a camera by their roles in a configuration: which are stored, which select others, and in what order
// they are applied.
#pragma once

#include "nodemap.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

// With the device's lock held, like everything that works on a configuration.
class ConfigurationLayout
{
public:
    explicit ConfigurationLayout(NodeMap &nodes);

    NodeMap &GetNodes() const;
    TovCam::FeatureInfo const &Info(std::uint32_t index) const;
    std::optional<std::uint32_t> Find(std::string const &name) const;
    bool IsSelector(std::uint32_t index) const;
    // Stored as a value, and not among the selectors.
    bool IsStored(std::uint32_t index) const;
    // All selectors of the camera, outer ones first.
    std::vector<std::uint32_t> const &GetSelectors() const;
    // All selectors that the feature's value depends on, outer ones first.
    std::vector<std::uint32_t> const &GetSelectorsOf(std::uint32_t index) const;
    // The stored features with the same selectors, each before those that depend on it. Where two depend on each other,
    // the description's order decides.
    std::vector<std::uint32_t> InOrder(std::vector<std::uint32_t> const &features) const;

private:
    void FindSelectors();
    bool DependsOn(std::uint32_t feature, std::uint32_t other) const;
    void SortOuterFirst(std::vector<std::uint32_t> &selectors) const;

    NodeMap &m_nodes;
    std::map<std::string, std::uint32_t, std::less<>> m_byName;
    std::vector<std::uint32_t> m_selectors;
    std::vector<std::vector<std::uint32_t>> m_selectorsOf;
};

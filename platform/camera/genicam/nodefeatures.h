// The features of a node map by their place in the tree: what each is now, and writing it.
#pragma once

#include "genicamnodes.h"

#include <map>
#include <vector>

// Any thread.
class NodeFeatures
{
public:
    explicit NodeFeatures(GenicamNodes &nodes); // which outlives it

    std::int32_t GetRole(std::uint32_t index, FeatureRole *role);
    // Access and value alone: the limits and the entries to choose from cost accesses of their own.
    std::int32_t ReadValue(std::uint32_t index, TovCam::FeatureState *state);
    std::int32_t ReadFeature(std::uint32_t index, TovCam::FeatureState *state);
    std::int32_t WriteFeature(std::uint32_t index, TovCam::FeatureValue const &value);
    std::int32_t IsCommandDone(std::uint32_t index, bool *done);
    // What ReadFeature reports as refused for a feature until it is written; replaces the earlier report.
    void SetRefused(std::map<std::uint32_t, std::vector<TovCam::RefusedSetting>> refused);

private:
    bool IsStreamLocked(GenicamNodes::Call const &call, std::uint32_t index);

    GenicamNodes &m_nodes;
    std::map<std::uint32_t, std::vector<TovCam::RefusedSetting>> m_refused; // guarded by the device's lock
};

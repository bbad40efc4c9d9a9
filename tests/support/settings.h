// A camera's settings: all that can be written, read and changed at once.
#pragma once

#include "tovcamera.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>

// The index of a feature in the tree; a failure, and 0, where there is none.
inline std::uint32_t FindFeature(TovCam::ParamArray *nodes, std::string const &name)
{
    for (std::uint32_t i = 0; i < nodes->GetFeatureCount(); ++i) {
        if (nodes->GetFeature(i)->name == name)
            return i;
    }
    ADD_FAILURE() << "no feature " << name;
    return 0;
}

inline std::string TextOf(TovCam::FeatureKind kind, TovCam::FeatureValue const &value)
{
    if (kind == TovCam::FeatureKind::Float)
        return std::to_string(value.real);
    return value.text.empty() ? std::to_string(value.integer) : value.text;
}

// Calls `look` for every feature that can be written, with what distinguishes it, and for those that a selector selects
// with every entry of it. The selectors are put back.
inline void ForSettings(TovCam::ParamArray *nodes,
                        std::function<void(std::string const &, std::uint32_t, TovCam::FeatureState const &)> look)
{
    auto const lookAt = [&](std::string const &prefix, std::uint32_t index) {
        TovCam::FeatureInfo const &info = *nodes->GetFeature(index);
        TovCam::FeatureState state;
        ASSERT_EQ(nodes->ReadFeature(index, &state), 0) << info.name;
        bool const isSetting = info.streamable || !info.selected.empty();
        // What makes the network fail would keep the others from being set.
        if (isSetting && state.access == TovCam::FeatureAccess::ReadWrite && !info.name.starts_with("Wire"))
            look(prefix + info.name, index, state);
    };
    for (std::uint32_t i = 0; i < nodes->GetFeatureCount(); ++i) {
        TovCam::FeatureInfo const &info = *nodes->GetFeature(i);
        TovCam::FeatureState selector;
        if (info.kind == TovCam::FeatureKind::Enumeration && !info.selected.empty() &&
            nodes->ReadFeature(i, &selector) == 0 && selector.access == TovCam::FeatureAccess::ReadWrite) {
            for (std::uint32_t const entry : selector.available) {
                TovCam::FeatureValue value;
                value.text = info.entries[entry].name;
                ASSERT_EQ(nodes->WriteFeature(i, value), 0);
                for (std::uint32_t const selected : info.selected)
                    lookAt(info.name + '=' + value.text + ' ', selected);
            }
            ASSERT_EQ(nodes->WriteFeature(i, selector.value), 0);
        }
        lookAt("", i);
    }
}

// Every setting of a camera by its name, once for each entry of its selector, as text.
inline std::map<std::string, std::string> Settings(TovCam::ParamArray *nodes)
{
    std::map<std::string, std::string> settings;
    ForSettings(nodes, [&](std::string const &name, std::uint32_t index, TovCam::FeatureState const &state) {
        settings[name] = TextOf(nodes->GetFeature(index)->kind, state.value);
    });
    return settings;
}

// Gives each of them another value.
inline void ChangeSettings(TovCam::ParamArray *nodes)
{
    ForSettings(nodes, [nodes](std::string const &name, std::uint32_t index, TovCam::FeatureState const &state) {
        TovCam::FeatureInfo const &info = *nodes->GetFeature(index);
        TovCam::FeatureValue value = state.value;
        switch (info.kind) {
        case TovCam::FeatureKind::Integer:
            value.integer = value.integer == state.minimum ? state.minimum + state.increment : state.minimum;
            if (value.integer > state.maximum)
                return;
            break;
        case TovCam::FeatureKind::Float:
            value.real =
                value.real == state.realMinimum ? std::min(value.real + 1.0, state.realMaximum) : state.realMinimum;
            break;
        case TovCam::FeatureKind::Boolean:
            value.integer = !value.integer;
            break;
        case TovCam::FeatureKind::Enumeration:
            value.text = info.entries[state.available.back()].name;
            if (value.text == state.value.text)
                value.text = info.entries[state.available.front()].name;
            break;
        case TovCam::FeatureKind::String:
            value.text = "changed";
            break;
        default:
            for (char &byte : value.text)
                byte = static_cast<char>(~byte);
            break;
        }
        EXPECT_EQ(nodes->WriteFeature(index, value), 0) << name;
    });
}

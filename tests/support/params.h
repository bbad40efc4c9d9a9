// What the parameters of a component hold.
#pragma once

#include "tovmisc.h"

#include <gtest/gtest.h>

#include <string>

inline long IntOf(TovComponent *component, char const *key)
{
    long value = -1;
    EXPECT_EQ(component->GetParamInt(key, &value), TOV_PARAM_OK) << key;
    return value;
}

inline double FloatOf(TovComponent *component, char const *key)
{
    double value = -1;
    EXPECT_EQ(component->GetParamFloat(key, &value), TOV_PARAM_OK) << key;
    return value;
}

inline std::string ParamText(TovComponent *component, char const *key)
{
    std::string text(1 << 16, '\0');
    auto size = static_cast<unsigned int>(text.size());
    EXPECT_EQ(component->GetParamAsString(key, text.data(), &size, nullptr), TOV_PARAM_OK) << key;
    return text.c_str();
}

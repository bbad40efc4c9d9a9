// Operations on OpenCV's vectors whose names differ between its releases: operators in older ones, functions in newer
// ones, which on Arm have no operators any more.
#pragma once

#include <opencv2/core/hal/intrin.hpp>

template<class Vector>
inline Vector Sum(Vector const &a, Vector const &b)
{
    if constexpr (requires { a + b; })
        return a + b;
    else
        return v_add(a, b);
}

template<class Vector>
inline Vector Union(Vector const &a, Vector const &b)
{
    if constexpr (requires { a | b; })
        return a | b;
    else
        return v_or(a, b);
}

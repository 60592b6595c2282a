#pragma once

#include "algorithm/limit.hpp"

struct cubic_curve {
    float a = 0.0f;  // of the third power
    float b = 0.0f;
    float c = 0.0f;
    float d = 0.0f;
};

// Added in this order, in single precision; no lower limit.
constexpr float cubic(const cubic_curve& curve, float x, float r_max) {
    return at_most(x * x * curve.b + x * x * x * curve.a + x * curve.c + curve.d, r_max);
}

#pragma once

struct cubic_curve {
    float a = 0.0f;  // of the third power
    float b = 0.0f;
    float c = 0.0f;
    float d = 0.0f;
};

constexpr float at_most(float value, float limit) { return value > limit ? limit : value; }

// Added in this order, in single precision; no lower limit.
constexpr float cubic(const cubic_curve& curve, float x, float r_max) {
    const float square = x * x * curve.b;
    return at_most(square + x * x * x * curve.a + x * curve.c + curve.d, r_max);
}

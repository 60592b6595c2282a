#pragma once

// A value that is no number stays one.
constexpr float at_most(float value, float limit) { return value > limit ? limit : value; }
constexpr float at_least(float value, float limit) { return value < limit ? limit : value; }

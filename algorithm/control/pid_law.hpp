#pragma once

#include "algorithm/limit.hpp"

// The velocity form of PID on a dead band: each pass moves the present output y by the error of x.

// What a pass with x inside the band does.
enum class pid_band_policy {
    run_on,  // the formula with error 0, so the history moves the output for two more passes
    clear,   // the history is cleared, the output is y, limited
    hold,    // the history is cleared, the output stays at the y of entry, not limited
};

struct pid_setting {
    float kp = 0.0f;
    float ki = 0.0f;
    float kd = 0.0f;
    float target_high = 0.0f;  // below target_low the action is reversed: what falls below it drives the output up
    float target_low = 0.0f;
    float r_max = 100.0f;
};

struct pid_history {
    float error1 = 0.0f;  // of this pass
    float error2 = 0.0f;
    float error3 = 0.0f;
};

// Distance of x from the band, positive where the output has to rise; 0 inside, edges included.
constexpr float pid_error(float x, float target_high, float target_low) {
    if (target_high >= target_low) {
        return x > target_high ? x - target_high : x < target_low ? x - target_low : 0.0f;
    }
    if (target_high < target_low) {
        return x < target_high ? target_high - x : x > target_low ? target_low - x : 0.0f;
    }
    return 0.0f;  // an edge that is no number
}

// One pass; returns the new output. `r_hold` is the output held inside the band, 0.0 while there is none.
constexpr float pid_step(const pid_setting& setting, pid_band_policy policy, float x, float y, pid_history& history,
                         float& r_hold) {
    const float e = pid_error(x, setting.target_high, setting.target_low);
    const float e1 = history.error1;
    const float e2 = history.error2;
    if (e == 0.0f && policy != pid_band_policy::run_on) {
        history = {};
        if (policy == pid_band_policy::clear) {
            return at_most(y, setting.r_max);
        }
        r_hold = r_hold == 0.0f ? y : r_hold;
        return r_hold;
    }
    history = {e, e1, e2};
    r_hold = 0.0f;
    const float r = y + (e - e1) * setting.kp + e * setting.ki + ((e - 2.0f * e1) + e2) * setting.kd;
    return at_most(r, setting.r_max);
}

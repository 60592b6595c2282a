#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

// Step regulation of an output by a value x that has a control level, a critical level and a guard band next to the
// control level in which the output holds.

struct threshold_setting {
    float tcontrol = 0.0f;
    float tcritical = 0.0f;
    float x_guard_band = 0.0f;
    float y_incremental = 0.0f;
    float r_max = 100.0f;
};

// At or below it the regulator lets go.
constexpr float threshold_release(const threshold_setting& setting) { return setting.tcontrol - setting.x_guard_band; }

// One pass of the regulator that works on the present output y: the new output, or nothing where it has let go. The
// release counts last: a critical level at or below it never gets through.
constexpr std::optional<float> threshold_step(const threshold_setting& setting, float x, float y, bool& stepping) {
    const bool critical = x >= setting.tcritical;
    const bool hot = x >= setting.tcontrol;
    stepping = (stepping || critical || hot) && !(x <= threshold_release(setting));
    if (!stepping) {
        return {};
    }
    const float step = critical ? setting.r_max : hot ? setting.y_incremental : 0.0f;
    return std::min(y + step, setting.r_max);
}

struct threshold_ramp_setting : threshold_setting {
    float y_incremental_poll_seconds = 0.0f;
    float y_decremental = 0.0f;
    float y_decremental_poll_seconds = 0.0f;
};

struct threshold_ramp {
    bool stepping = false;
    float r = 0.0f;
    std::uint32_t last_step_time = 0;  // in seconds, of a step up or down

    // Elapsed time is unsigned: after a clock that was set back it is huge, and the step is due.
    constexpr void step(float change, float least_seconds, std::uint32_t now) {
        if (static_cast<float>(now - last_step_time) >= least_seconds) {
            r += change;
            last_step_time = now;
        }
    }
};

enum class threshold_zone { cool, guard_band, hot, critical };

// Where x stands. With tcontrol above tcritical the scale is reversed, for a value that falls as things get hotter.
constexpr threshold_zone threshold_zone_of(const threshold_setting& setting, float x) {
    const float sign = setting.tcontrol > setting.tcritical ? -1.0f : 1.0f;
    const float control = sign * setting.tcontrol;
    if (sign * x <= control - setting.x_guard_band) {
        return threshold_zone::cool;
    }
    if (sign * x >= control) {
        return sign * x >= sign * setting.tcritical ? threshold_zone::critical : threshold_zone::hot;
    }
    return threshold_zone::guard_band;
}

// One pass of the timed ramp, which starts from y when x turns hot and comes down by itself. A critical pass uses up
// the step timer too.
constexpr void threshold_ramp_step(const threshold_ramp_setting& setting, float x, float y, std::uint32_t now,
                                   threshold_ramp& ramp) {
    const threshold_zone zone = threshold_zone_of(setting, x);
    if (zone >= threshold_zone::hot) {
        if (zone == threshold_zone::critical) {
            ramp.r = setting.r_max;
        } else if (!ramp.stepping) {
            ramp.r = y;
        }
        ramp.stepping = true;
        ramp.step(setting.y_incremental, setting.y_incremental_poll_seconds, now);
    } else if (zone == threshold_zone::cool || !ramp.stepping) {
        ramp.stepping = false;
        ramp.step(-setting.y_decremental, setting.y_decremental_poll_seconds, now);
    }
    ramp.r = std::min(ramp.r, setting.r_max);
    // A start from a y that is no number would hold the ramp at no number.
    if (!(ramp.r > 0.0f)) {
        ramp.r = 0.0f;
    }
}

#include "device/airflow.hpp"

#include <algorithm>
#include <array>

#include "device/fan/fan_control.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_airflow";
enum word : std::size_t { raw_count, windspeed, lfm, avg_raw, avg_windspeed, avg_lfm, dusk_filter_check };

constexpr float failed_read = 255.0f;
constexpr std::uint8_t usual_average = 10;

struct curve_point {
    float speed;  // m/s
    float raw;
};

constexpr std::array<curve_point, 13> curve{{{0, 409},
                                             {2, 1203},
                                             {3, 1597},
                                             {4, 1908},
                                             {5, 2187},
                                             {6, 2400},
                                             {7, 2629},
                                             {8, 2801},
                                             {9, 3006},
                                             {10, 3178},
                                             {11, 3309},
                                             {13, 3563},
                                             {15, 3686}}};

// Linear feet per minute, rounded once from double.
float feet_per_minute(float metres_per_second) {
    return static_cast<float>(static_cast<double>(metres_per_second) * 196.85);
}

// What passes between this device and the requester of a measurement.
enum requester_status : std::uint32_t {
    no_request = 0x00,
    requested = 0x10,
    measuring = 0x11,
    measured = 0x80,
    refused = 0x81,
};

bool is_request(std::uint32_t status) { return status == requested || status == measuring || status == measured; }

void log_bound(const char* bound, const curve_point& point) {
    LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_airflow:: %s:[%02d][%04d]\n", bound,
             static_cast<int>(point.speed), static_cast<int>(point.raw));
}

}  // namespace

dust_filter_actions advance_dust_filter(dust_filter_state& state, std::uint32_t status) {
    constexpr std::uint32_t polls_filling = 10;
    constexpr std::uint32_t polls_settling = 5;
    if (status == no_request && state.step != 0) {
        state.step = 0;
        return {.calibrate = false, .nap = 10};
    }
    if (!is_request(status)) {
        return {};
    }
    switch (state.step) {
        case 0:
            state.step = 1;
            return {.calibrate = true, .answer = measuring, .nap = 30};
        case 1:
            state = {.step = 2, .countdown = polls_filling};
            return {.average_count = std::uint8_t{1}};
        case 2:
            if (state.countdown == 0) {
                state = {.step = 3, .countdown = polls_settling};
                return {};
            }
            if (state.countdown-- == polls_filling) {
                return {.average_count = usual_average};
            }
            return {};
        case 3:
            if (state.countdown == 0) {
                return {.answer = measured};
            }
            --state.countdown;
            return {};
        default:
            state.step = 0;
            return {.answer = refused};
    }
}

common_thermal_device_airflow::common_thermal_device_airflow(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_airflow),
      _values(class_name, instance,
              {{"raw"}, {"windspeed"}, {"lfm"}, {"avg_raw"}, {"avg_windspeed"}, {"avg_lfm"}, {"dusk_filter_check"}}),
      _port(*this, device_port::kind::block, "AIRFLOW_PORT"),
      _dust_port(*this, device_port::kind::integer, "DUST_F_MEAS_PORT") {
    _dust_port.bind("CIO_AIRFLOW_MEASUREMENT_STATUS");
    common_thermal_device::set_avg_count(usual_average);
}

bool common_thermal_device_airflow::request_airflow_raw(common_thermal_utils* port, float& raw) {
    if (port == nullptr || !port->is_bound()) {
        return false;
    }
    std::array<std::uint8_t, 3> bytes{};
    if (!port->write_read_port_block(nullptr, 0, bytes.data(), bytes.size())) {
        raw = failed_read;
        return false;
    }
    const unsigned count = static_cast<unsigned>(bytes[1]) << 8 | bytes[2];
    raw = static_cast<float>(count);
    LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_airflow::%s RESP[%X][0x%x, 0x%x, 0x%x]\n",
             "request_airflow_raw", count, +bytes[0], +bytes[1], +bytes[2]);
    return true;
}

bool common_thermal_device_airflow::convert_to_windspeed(float raw, float& windspeed) {
    const auto holds = [raw](const curve_point& lower, const curve_point& upper) {
        return lower.raw <= raw && raw < upper.raw;
    };
    const auto lower = std::adjacent_find(curve.begin(), curve.end(), holds);
    if (lower == curve.end()) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_airflow::%s Raw[%f] out of range!\n",
                 "convert_to_windspeed", shown(raw));
        return false;
    }
    const auto upper = lower + 1;
    windspeed = lower->speed + (upper->speed - lower->speed) * (raw - lower->raw) / (upper->raw - lower->raw);
    log_bound("LowerBound", *lower);
    LOG::log(log_source, log_mask::life_cycle, "common_thermal_device_airflow:: Windspeed[%2.4f] Raw[%4.2f]\n",
             shown(windspeed), shown(raw));
    log_bound("UpperBound", *upper);
    return true;
}

dust_filter_actions common_thermal_device_airflow::follow_requester() {
    std::uint32_t status = 0;
    if (!_dust_port.is_bound() || !_dust_port.read_port_integer(&status)) {
        return {};
    }
    if (is_request(status)) {
        LOG::log(log_source, log_mask::bus, "common_thermal_device_airflow::%s SEQ[0x%f]\n", "poll",
                 static_cast<double>(_dust_filter.step));
    }
    return advance_dust_filter(_dust_filter, status);
}

void common_thermal_device_airflow::carry_out(const dust_filter_actions& actions) {
    if (actions.calibrate) {
        for_each_depend<common_thermal_device_fan_control>(
            utils::tdev_fan_control,
            [&actions](common_thermal_device_fan_control& fans) { fans.set_calibration_mode(*actions.calibrate); });
    }
    if (actions.average_count) {
        set_avg_count(*actions.average_count);
    }
    if (actions.answer) {
        _dust_port.write_port_integer(*actions.answer);
    }
}

void common_thermal_device_airflow::measure() {
    float raw = 0.0f;
    const bool read = request_airflow_raw(&_port, raw);
    _values[raw_count] = raw;
    if (!read) {
        return;
    }
    if (raw != 0.0f) {
        calculate_avg_reading(raw, _values[avg_raw]);
    }
    float speed = 0.0f;
    if (!convert_to_windspeed(raw, speed) || speed == 0.0f) {
        return;
    }
    _values[windspeed] = speed;
    _values[lfm] = feet_per_minute(speed);
    calculate_avg_reading(speed, _values[avg_windspeed]);
    _values[avg_lfm] = feet_per_minute(_values[avg_windspeed]);
}

void common_thermal_device_airflow::poll(common_thermal_dao* dao, unsigned long now) {
    if (nap_chk(now)) {
        return;
    }
    const dust_filter_actions actions = follow_requester();
    carry_out(actions);
    measure();
    _values[dusk_filter_check] = static_cast<float>(_dust_filter.step);
    _values.publish(dao, common_thermal_dao::spike_none);
    nap_set(now, actions.nap);
}

#pragma once

#include "device/common_thermal_device.hpp"

// The six boot stages as 1.0 or 0.0. Firmware events set them through the manager; other devices gate their polls on
// them, rules test them in the store.
class THERMAL_API common_thermal_device_event_status : public common_thermal_device {
public:
    using status_stage_t = common_thermal_utils::status_stage_t;

    explicit common_thermal_device_event_status(int instance);

    // False for a stage outside 0 to 5.
    bool get_stage(status_stage_t stage) const;
    // Shows in the store with the next poll.
    void set_stage(status_stage_t stage, bool value);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    published_values _values;
};

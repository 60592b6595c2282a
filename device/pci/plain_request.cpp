#include "device/pci/plain_request.hpp"

#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

plain_request::status_t plain_request::write_read(std::span<const std::uint8_t> tx, std::span<std::uint8_t> rx) const {
    return agent == nullptr ? utils::cmd_failed
                            : agent->write_read_command(token, state, tx, rx, operation,
                                                        static_cast<unsigned>(device.get_instance()));
}

plain_request::status_t plain_request::conclude(status_t result, float degrees, float* value) const {
    if (result == utils::cmd_complete) {
        *value = degrees;
    } else {
        *value = utils::invalid_temperature;
        log_status(result);
    }
    return result;
}

void plain_request::log_status(status_t result) const {
    if (LOG::is_enabled(log_mask::bus)) {
        LOG::log(log_source, log_mask::bus, "%s::%s - cur_status(%d)\n", device.get_name().c_str(), operation.data(),
                 static_cast<int>(result));
    }
}

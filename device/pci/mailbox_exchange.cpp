#include "device/pci/mailbox_exchange.hpp"

#include "foundation/log_masks.hpp"

mailbox_exchange::status_t mailbox_exchange::advance(status_t result) {
    if (result == common_thermal_utils::cmd_pending && ++_pending_answers < patience) {
        _state = result;
        return result;
    }
    if (result == common_thermal_utils::cmd_pending) {
        LOG::warn(log_source, log_mask::life_cycle, "A PCI adapter left a request pending for %lu polls\n",
                  static_cast<unsigned long>(patience));
        result = common_thermal_utils::cmd_failed;
    }
    reset();
    return result;
}

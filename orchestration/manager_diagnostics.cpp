#include "algorithm/control/log.hpp"
#include "foundation/log_masks.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "orchestration/pci_slots.hpp"

// Snapshots and histories to their files, on request at the end of a cycle.
namespace {

using log_type_t = common_thermal_dao::log_type_t;

// Brackets the work with two log lines.
template <class Work>
void report(const char* function, const char* what, const Work& work) {
    if (common_thermal_manager::_dao == nullptr || common_thermal_manager::_scheduler == nullptr) {
        return;
    }
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s BEGIN %s\n", function, what);
    work(*common_thermal_manager::_dao, *common_thermal_manager::_scheduler);
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s END %s\n", function, what);
}

template <class Visitor>
void for_each_rule(const common_thermal_scheduler& scheduler, Visitor&& visit) {
    for (common_thermal_algorithm* rule : scheduler.get_all_thermal_algorithm_list()) {
        if (rule != nullptr) {
            visit(*rule);
        }
    }
}

void write_log_of(common_thermal_algorithm& rule, unsigned long now) {
    if (auto* log = dynamic_cast<common_thermal_algorithm_log*>(&rule)) {
        log->write_log_all(now);
    }
}

}  // namespace

void common_thermal_manager::create_debug_tdev_information(unsigned long now) {
    report("create_debug_tdev_information", "Debug tdev", [now](auto& dao, auto& scheduler) {
        dao.clear_debug_texts(log_type_t::log_devices);
        for (common_thermal_device* device : scheduler.get_all_thermal_device_list()) {
            dao.update_debug_tdev(device->get_name(), device->get_instance(), device->debugging());
        }
        dao.write_debug_tdev_list(now);
    });
}

void common_thermal_manager::create_debug_talg_information(unsigned long now) {
    report("create_debug_talg_information", "Debug talg", [now](auto& dao, auto& scheduler) {
        dao.clear_debug_texts(log_type_t::log_algorithms);
        for_each_rule(scheduler, [&dao, now](common_thermal_algorithm& rule) {
            dao.update_debug_talg(rule.get_name(), rule.get_instance(), rule.debugging());
            write_log_of(rule, now);
        });
        dao.write_debug_talg_list(now);
    });
}

void common_thermal_manager::create_debug_dao_information(unsigned long now) {
    report("create_debug_dao_information", "Debug dao", [now](auto& dao, auto&) { dao.write_dao_list(now); });
}

void common_thermal_manager::create_debug_mapping_information(unsigned long now) {
    report("create_debug_mapping_information", "Debug mapping",
           [now](auto& dao, auto&) { dao.write_debug_mapping_list(now); });
}

void common_thermal_manager::create_debug_scheduler_information(unsigned long now) {
    report("create_debug_scheduler_information", "Debug scheduler",
           [now](auto& dao, auto&) { dao.write_debug_scheduler_list(now); });
}

void common_thermal_manager::create_debug_fan_alg_information(unsigned long now) {
    report("create_debug_fan_alg_information", "Debug fan algorithm",
           [now](auto& dao, auto&) { dao.write_debug_fan_alg(now); });
}

void common_thermal_manager::create_debug_cap_alg_information(unsigned long now) {
    report("create_debug_cap_alg_information", "Debug capping algorithm",
           [now](auto& dao, auto&) { dao.write_debug_cap_alg(now); });
}

void common_thermal_manager::create_debug_pwrlmt_alg_information(unsigned long now) {
    report("create_debug_pwrlmt_alg_information", "Debug power limit algorithm", [now](auto& dao, auto& scheduler) {
        for_each_slot(scheduler, [&dao, now](const common_thermal_device_pci_slot&, std::uint32_t key) {
            dao.write_debug_pwrlmt_alg(now, key);
        });
    });
}

void common_thermal_manager::create_log_alg_information(unsigned long now) {
    report("create_log_alg_information", "Debug log alg", [now](auto&, auto& scheduler) {
        for_each_rule(scheduler, [now](common_thermal_algorithm& rule) { write_log_of(rule, now); });
    });
}

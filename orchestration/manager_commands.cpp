#include <array>
#include <cstdio>
#include <optional>

#include "device/fan/fan.hpp"
#include "device/uefi.hpp"
#include "foundation/log_masks.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "platform/ipmi.hpp"
#include "platform/software_events.hpp"

// The operator's two commands, and the fan override that is kept over a restart.
namespace {

using manager_t = common_thermal_manager;
using utils = common_thermal_utils;

constexpr std::uint8_t oem_function = 0x3A;
constexpr std::uint8_t debug_command = 0x06;
constexpr std::uint8_t fan_speed_command = 0x07;

constexpr std::uint8_t success = 0;
constexpr std::uint8_t wrong_length = 199;
constexpr std::uint8_t wrong_limit_length = 202;
constexpr std::uint8_t nothing_asked = 204;

enum debug_request : std::uint8_t {
    snapshot_log_rules = 0,
    snapshot_devices = 1,
    snapshot_winners = 2,
    snapshot_schedule = 3,
    load_rules = 128,
    tgp_limit = 192,
    edpp_limit = 193,
};

// By control value. Bit 0 of `tables` is the fans by hand, bits 1 to 3 are override tables.
struct fan_policy {
    const char* name;
    unsigned tables;
};
constexpr std::array<fan_policy, 5> policies{{{"Normal Speed", 0b0000},
                                              {"", 0b0001},
                                              {"Low Increase", 0b0010},
                                              {"Medium Increase", 0b0110},
                                              {"High Increase", 0b1110}}};
constexpr std::uint8_t no_override = 0;
constexpr std::uint8_t fans_by_hand = 1;
constexpr unsigned override_tables = 4;

constexpr std::uint8_t no_zone = 0;
constexpr std::uint8_t all_zones = 255;
constexpr std::uint8_t default_e = 11;
constexpr std::uint16_t ask_v_and_d = 0xFFFF;  // with `ask_e` a request for the stored override
constexpr std::uint8_t ask_e = 255;

constexpr const char* control_property = "/ac/nrv/therm_config/fan_ovr_tbl/tbl_control";
constexpr const char* zone_property = "/ac/nrv/therm_config/fan_ovr_tbl/zone";
constexpr const char* speed_property = "/ac/nrv/therm_config/fan_ovr_tbl/speed";
constexpr const char* vde_property = "/ac/nrv/therm_config/fan_ovr_tbl/vde";
constexpr unsigned vde_size = 6;

bool is_kept(std::uint8_t control) { return control < policies.size() && control != fans_by_hand; }

const char* policy_name(std::uint8_t control) { return control < policies.size() ? policies[control].name : ""; }

template <class Device, class Visitor>
void for_each_device(const manager_t::index_list& list, Visitor&& visit) {
    for (const unsigned long index : list) {
        if (auto* device = static_cast<Device*>(manager_t::_scheduler->get_thermal_device_by_index(index))) {
            visit(*device);
        }
    }
}

template <class Visitor>
void for_each_fan(Visitor&& visit) {
    if (manager_t::_scheduler != nullptr) {
        for_each_device<common_thermal_device_fan>(manager_t::_scheduler->fan_indices(), visit);
    }
}

void set_table_status(unsigned table, bool enable, unsigned duty) {
    if (manager_t::_scheduler != nullptr) {
        for_each_device<common_thermal_device_uefi>(
            manager_t::_scheduler->uefi_indices(),
            [&](common_thermal_device_uefi& device) { device.set_override_table_status(table, enable, duty); });
    }
}

bool read_byte(const char* path, std::uint8_t& value) {
    const bmc_property* property = DM::get_property(path);
    if (property != nullptr) {
        value = property->get_byte();
    }
    return property != nullptr;
}

constexpr std::uint8_t high_byte(std::uint16_t word) { return static_cast<std::uint8_t>(word >> 8); }
constexpr std::uint8_t low_byte(std::uint16_t word) { return static_cast<std::uint8_t>(word & 0xFF); }
constexpr std::uint16_t word_at(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

constexpr const char* record_function = "prop_rw_override_tbl";

void write_override(std::uint8_t control, std::uint8_t zone, std::uint8_t speed, std::uint8_t e, std::uint16_t v,
                    std::uint16_t d) {
    if (utils::set_ipmi_property(control_property, control)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s, write control = %u\n", record_function,
                 control);
    }
    if (control == no_override) {
        for (const char* path : {zone_property, speed_property, vde_property}) {
            DM::del_property(path);
        }
        return;
    }
    if (utils::set_ipmi_property(zone_property, zone)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , write zone = %u\n", record_function,
                 zone);
    }
    if (utils::set_ipmi_property(speed_property, speed)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , write speed = %u\n", record_function,
                 speed);
    }
    const std::uint8_t vde[vde_size] = {high_byte(v), low_byte(v), high_byte(d), low_byte(d), 0, e};
    if (utils::set_ipmi_property(vde_property, vde, vde_size)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , write vde = %2x%2x %2x%2x %2x%2x\n",
                 record_function, vde[0], vde[1], vde[2], vde[3], vde[4], vde[5]);
    }
}

// What read_override() says was missing.
constexpr int no_control = 1;
constexpr int no_zone_or_speed = 2;
constexpr int no_vde = 4;

int read_control(std::uint8_t& control) {
    if (read_byte(control_property, control)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , read control = %u\n", record_function,
                 control);
        return 0;
    }
    control = no_override;
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s show default control = %u[%d].\n",
             record_function, control, no_control);
    return no_control;
}

int read_zone_and_speed(std::uint8_t& zone, std::uint8_t& speed) {
    int missing = 0;
    if (read_byte(zone_property, zone)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , read zone = %u\n", record_function,
                 zone);
    } else {
        missing = no_zone_or_speed;
    }
    if (read_byte(speed_property, speed)) {
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , read speed = %u\n", record_function,
                 speed);
    } else {
        missing = no_zone_or_speed;
    }
    return missing;
}

int read_override(std::uint8_t& control, std::uint8_t& zone, std::uint8_t& speed, std::uint8_t& e, std::uint16_t& v,
                  std::uint16_t& d) {
    int missing = read_control(control);
    missing |= read_zone_and_speed(zone, speed);
    const bmc_property* vde = DM::get_property(vde_property);
    const std::uint8_t* stored = vde != nullptr ? vde->get_block() : nullptr;
    if (tlv1::tlv_get_length(stored) == vde_size) {
        const std::uint8_t* bytes = stored + tlv1::header_size;
        v = word_at(bytes);
        d = word_at(bytes + 2);
        e = bytes[5];
        LOG::log(log_source, log_mask::life_cycle, "common_thermal_manager::%s , read vde %u, %u, %u\n",
                 record_function, v, d, e);
    } else {
        v = d = e = 0;
        missing |= no_vde;
        LOG::log(log_source, log_mask::result, "common_thermal_manager::%s show default vde %u, %u, %u[%d].\n",
                 record_function, v, d, e, missing);
    }
    return missing;
}

void answer_fan_duties(bmc_message_buffer& response) {
    for_each_fan([&response](const common_thermal_device_fan& fan) {
        std::optional<std::uint8_t> duty;
        fan.for_each_pwm(
            [&duty](const common_thermal_device_fan_pwm& output) { duty = duty.value_or(output.get_output_value()); });
        if (!duty) {
            LOG::log(log_source, log_mask::slot_arbitration, "common_thermal_manager::%s fan[%d] without pwm dev.\n",
                     "set_fan_speed", fan.get_instance());
        }
        response.push(duty.value_or(0));
    });
}

// A request of the selector and a slot asks for a limit, a longer one sets it.
using limit_operation = void (manager_t::*)(ipmi_message*);
std::uint8_t get_or_set_limit(manager_t& manager, ipmi_message& message, unsigned set_length, limit_operation get,
                              limit_operation set) {
    constexpr unsigned get_length = 2;
    const unsigned length = message.request.length();
    if (length != get_length && length != set_length) {
        return wrong_limit_length;
    }
    (manager.*(length == get_length ? get : set))(&message);
    return success;
}

}  // namespace

void common_thermal_manager::register_commands() {
    IPMI::register_command({debug_command, oem_function, 0},
                           [this](ipmi_message& message) { return debug_thermal(this, &message); });
    IPMI::register_command({fan_speed_command, oem_function, 0},
                           [this](ipmi_message& message) { return set_fan_speed(this, &message); });
}

void common_thermal_manager::withdraw_commands() {
    IPMI::register_command({debug_command, oem_function, 0}, nullptr);
    IPMI::register_command({fan_speed_command, oem_function, 0}, nullptr);
}

std::uint8_t common_thermal_manager::debug_thermal(common_thermal_manager* manager, ipmi_message* message) {
    if (message->request.length() == 0) {
        return nothing_asked;
    }
    switch (message->request.pop()) {
        case snapshot_log_rules:
            manager->ipmicmd_debug_on_log_alg();
            break;
        case snapshot_devices:
            manager->ipmicmd_debug_on();
            break;
        case snapshot_winners:
            manager->ipmicmd_debug_on_fan_alg();
            break;
        case snapshot_schedule:
            manager->ipmicmd_debug_on_scheduler();
            break;
        case load_rules:
            manager->ipmicmd_load_algorithm();
            break;
        case tgp_limit:
            return get_or_set_limit(*manager, *message, 4, &manager_t::ipmicmd_get_tgp_user,
                                    &manager_t::ipmicmd_set_tgp_user);
        case edpp_limit:
            return get_or_set_limit(*manager, *message, 3, &manager_t::ipmicmd_get_edpp_user,
                                    &manager_t::ipmicmd_set_edpp_user);
        default:
            break;
    }
    return success;
}

std::uint8_t common_thermal_manager::set_fan_speed(common_thermal_manager* manager, ipmi_message* message) {
    bmc_message_buffer& request = message->request;
    bmc_message_buffer& response = message->response;
    const unsigned length = request.length();
    if (length == 0) {
        answer_fan_duties(response);
        return success;
    }
    if (length < 3 || length > 8) {
        return wrong_length;
    }
    std::uint8_t zone = request.pop();
    std::uint8_t speed = request.pop();
    std::uint8_t control = request.pop();
    std::uint16_t v = length > 4 ? request.pop_16() : std::uint16_t{0};
    std::uint16_t d = length > 6 ? request.pop_16() : std::uint16_t{0};
    std::uint8_t e = length > 7 ? request.pop() : default_e;
    if (v == ask_v_and_d && d == ask_v_and_d && e == ask_e) {
        manager->prop_rw_override_tbl(0, control, zone, speed, e, v, d);
        response.push_16(v);
        response.push_16(d);
        response.push(control);
        return success;
    }
    set_override_tbl(manager, control, zone, speed, e, v, d);
    manager->prop_rw_override_tbl(1, control, zone, speed, e, v, d);
    manager->set_fan_accelerate_policy(control);
    return success;
}

void common_thermal_manager::set_override_tbl(common_thermal_manager* manager, std::uint8_t control, std::uint8_t zone,
                                              std::uint8_t speed, std::uint8_t e, std::uint16_t v, std::uint16_t d) {
    if (control >= policies.size()) {
        return;
    }
    for (unsigned table = 0; table < override_tables; ++table) {
        if ((policies[control].tables >> table & 1) != 0) {
            manager->ipmicmd_override_table(table, true, zone, speed, e, v, d);
        } else {
            manager->ipmivmd_override_cancel(table);
        }
    }
}

void common_thermal_manager::ipmicmd_override_table(unsigned table, bool, unsigned zone, unsigned speed, std::uint8_t,
                                                    std::uint16_t, std::uint16_t) {
    if (table == 0) {
        set_manual_fan_speed(static_cast<std::uint8_t>(zone), static_cast<std::uint8_t>(speed));
    } else {
        set_table_status(table, true, speed);
    }
}

void common_thermal_manager::ipmivmd_override_cancel(unsigned table) {
    if (table == 0) {
        set_manual_fan_speed(no_zone, 0);
    } else {
        set_table_status(table, false, 0);
    }
}

void common_thermal_manager::set_manual_fan_speed(std::uint8_t zone, std::uint8_t speed) {
    for_each_fan([zone, speed](common_thermal_device_fan& fan) {
        if (zone == no_zone) {
            fan.set_manual_speed(false, 0);
        } else if (zone == all_zones || fan.get_instance() == zone) {
            fan.set_manual_speed(true, speed);
        }
    });
}

int common_thermal_manager::prop_rw_override_tbl(std::uint8_t write, std::uint8_t& control, std::uint8_t& zone,
                                                 std::uint8_t& speed, std::uint8_t& e, std::uint16_t& v,
                                                 std::uint16_t& d) {
    if (write == 0) {
        return read_override(control, zone, speed, e, v, d);
    }
    if (write > 1 || !is_kept(control)) {
        return -1;
    }
    write_override(control, zone, speed, e, v, d);
    return 0;
}

void common_thermal_manager::load_fan_override_tbl() {
    constexpr const char* function = "load_fan_override_tbl";
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s BEGIN Load Fan override table\n", function);
    if (!_fan_override_loaded) {
        std::uint8_t control = 0, zone = 0, speed = 0, e = 0;
        std::uint16_t v = 0, d = 0;
        const int missing = prop_rw_override_tbl(0, control, zone, speed, e, v, d);
        if (missing == 0 && control != no_override && is_kept(control)) {
            set_override_tbl(this, control, zone, speed, e, v, d);
        } else {
            LOG::log(log_source, log_mask::result,
                     "common_thermal_manager::%s no control value received (rc %d, control %u)\n", function, missing,
                     control);
        }
        _fan_override_loaded = true;
    }
    LOG::log(log_source, log_mask::result, "common_thermal_manager::%s END Load Fan override table\n", function);
}

void common_thermal_manager::set_fan_accelerate_policy(std::uint8_t control) {
    if (!is_kept(control)) {
        return;
    }
    std::uint8_t old = no_override;
    read_byte(accelerate_policy, old);
    utils::set_ipmi_property(accelerate_policy, control);
    fan_policy_change change{};
    std::snprintf(change.old_name, sizeof(change.old_name), "%s", policy_name(old));
    std::snprintf(change.new_name, sizeof(change.new_name), "%s", policy_name(control));
    if (sw_msg_dispatcher(fan_policy_event, &change) != 0) {
        LOG::err(log_source, "Generate SW_MSGID_FAN_SPEED_SETTING_CHANGED event fail");
    }
}

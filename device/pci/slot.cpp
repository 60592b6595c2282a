#include "device/pci/slot.hpp"

#include "device/pci/pciegen_pwrbrk.hpp"
#include "device/pci/slot_pins.hpp"
#include "device/pci/supported_list.hpp"
#include "device/uefi.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_pci_slot";
constexpr float milliwatts_per_watt = 1000.0f;

enum word : std::size_t {
    location,
    slot_no,
    presence,
    multi_funcs,
    vid,
    did,
    svid,
    sdid,
    classcode,
    temperature,
    secondary_temperature,
    tertiary_temperature,
    margin,
    power,
    max_power,
    power_ratio,
    pciegen_pwrbrk,
    tgp,
    tgp_platform,
    tgp_thermal,
    tgp_user,
    tgp_vpd,
    word_count,
};

std::string key_of(const char* text) { return common_thermal_device::create_dao_key_prefix(class_name, text); }

// 0.0 for a limit that nobody set.
float limit_in_store(store_reference& limit, const common_thermal_dao* dao) {
    float watts = 0.0f;
    if (dao != nullptr) {
        limit.fetch(*dao, &watts);
    }
    return watts;
}

}  // namespace

float total_graphics_power(const card_power_limits& limits) {
    float watts = limits.vpd != 0.0f && limits.vpd <= limits.max_power ? limits.vpd : limits.max_power;
    if (limits.user != 0.0f && limits.user <= limits.max_power) {
        watts = limits.user;
    }
    if (limits.thermal != 0.0f && watts >= limits.thermal) {
        watts = limits.thermal;
    }
    if (limits.platform != 0.0f && limits.platform <= watts) {
        watts = limits.platform;
    }
    return watts;
}

common_thermal_device_pci_slot::common_thermal_device_pci_slot(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_pci_slot),
      _values(class_name, instance,
              {{"location"},
               {"slot_no"},
               {"presence"},
               {"multi_funcs"},
               {"vid"},
               {"did"},
               {"svid"},
               {"sdid"},
               {"classcode"},
               {"temperature"},
               {"secondary_temperature"},
               {"tertiary_temperature"},
               {"margin", utils::invalid_temperature},
               {"power"},
               {"max_power"},
               {"power_ratio"},
               {"pciegen_pwrbrk"},
               {"tgp"},
               {"tgp_platform"},
               {"tgp_thermal"},
               {"tgp_user"},
               {"tgp_vpd"}}),
      _max_power_setting("4PMW." + key_of("max_power"), instance),
      _tgp_platform(key_of("tgp_platform"), instance),
      _tgp_user(key_of("tgp_user"), instance),
      _tgp_vpd(key_of("tgp_vpd"), instance) {}

void common_thermal_device_pci_slot::set_num(unsigned location_code, unsigned slot_number) {
    _slot_info.location = static_cast<std::uint8_t>(location_code);
    _slot_info.slot_no = static_cast<std::uint16_t>(slot_number);
}

void common_thermal_device_pci_slot::set_primary_temperature(float degrees) { _values[temperature] = degrees; }

void common_thermal_device_pci_slot::set_secondary_temperature(float degrees) {
    _values[secondary_temperature] = degrees;
}

void common_thermal_device_pci_slot::set_tertiary_temperature(float degrees) {
    _values[tertiary_temperature] = degrees;
}

void common_thermal_device_pci_slot::set_margin(float degrees) { _values[margin] = degrees; }

void common_thermal_device_pci_slot::set_power_consumption(float milliwatts) { _values[power] = milliwatts; }

float common_thermal_device_pci_slot::get_max_power() const { return _values[max_power]; }

void common_thermal_device_pci_slot::set_powerlimit_watt(float watts) { _values[tgp] = watts; }

float common_thermal_device_pci_slot::get_powerlimit_watt() const { return _values[tgp]; }

void common_thermal_device_pci_slot::set_pciegen_pwrbrk(bool brake) {
    using brake_pin = common_thermal_device_pci_request_pciegen_pwrbrk;
    _values[pciegen_pwrbrk] = brake ? 1.0f : 0.0f;
    for_each_depend<brake_pin>(utils::tdev_pci_request_pciegen_pwrbrk,
                               [brake](brake_pin& pin) { brake ? pin.enable() : pin.disable(); });
}

bool common_thermal_device_pci_slot::is_stopped() const {
    using stop_pin = common_thermal_device_pci_slot_stop_polling;
    return any_depend<stop_pin>(utils::tdev_pci_slot_stop_polling, [](const stop_pin& pin) { return pin.is_stop(); });
}

bool common_thermal_device_pci_slot::has_presence_pin() const {
    using presence_pin = common_thermal_device_pci_slot_presence;
    return any_depend<presence_pin>(utils::tdev_pci_slot_presence,
                                    [](const presence_pin& pin) { return pin.is_presence(); });
}

bool common_thermal_device_pci_slot::look_into_inventory(bool stopped) {
    using supported_list = common_thermal_device_pci_supported_list;
    bool found = false;
    unsigned functions = 0;
    _inventory_is_up = false;
    for_each_depend<common_thermal_device_uefi>(utils::tdev_uefi, [&](const common_thermal_device_uefi& uefi) {
        _inventory_is_up = uefi.is_actived();
        if (!_inventory_is_up) {
            return;
        }
        bool first = true;
        functions = uefi.for_each_pci_info(_slot_info.slot_no, _slot_info.location, [&](const pci_info_t& function) {
            if (first) {
                _slot_info = function;
            }
            first = false;
            for_each_depend<supported_list>(utils::tdev_pci_supported_list, [&](supported_list& list) {
                stopped ? list.deactive_command() : list.active_command(&function);
            });
        });
        found = found || functions > 0;
    });
    _values[multi_funcs] = static_cast<float>(functions);
    return found;
}

float common_thermal_device_pci_slot::max_power_of_card(const common_thermal_dao* dao, bool present) {
    if (!present) {
        return 0.0f;
    }
    float watts = _values[max_power];
    const bool set = watts != 0.0f || (dao != nullptr && _max_power_setting.fetch(*dao, &watts));
    if (!set) {
        LOG::log(log_source, log_mask::slot_arbitration, "%s::%s - %s.%d [NA]\n", get_name().c_str(), "poll",
                 _max_power_setting.name().c_str(), _max_power_setting.instance());
    }
    return watts;
}

void common_thermal_device_pci_slot::log_limit(std::size_t position, bool present) const {
    LOG::log(log_source, log_mask::slot_arbitration, "%s::%s - %s.%s.%d [%f][%d]\n", get_name().c_str(), "poll",
             class_name, position == tgp ? "tgp" : "max_power", get_instance(), shown(_values[position]),
             present ? 1 : 0);
}

void common_thermal_device_pci_slot::publish(common_thermal_dao* dao) {
    for (std::size_t position = 0; position < word_count; ++position) {
        if (position != power_ratio) {
            _values.publish_one(dao, position, common_thermal_dao::spike_going_high);
        }
    }
}

void common_thermal_device_pci_slot::poll(common_thermal_dao* dao, unsigned long) {
    const bool stopped = is_stopped();
    const bool pin = has_presence_pin();
    const bool present = look_into_inventory(stopped) || pin;

    card_power_limits limits;
    limits.max_power = max_power_of_card(dao, present);
    limits.platform = limit_in_store(_tgp_platform, dao);
    limits.thermal = static_cast<float>(_powerlimit_percentage) * limits.max_power / 100.0f;
    limits.user = limit_in_store(_tgp_user, dao);
    limits.vpd = limit_in_store(_tgp_vpd, dao);

    _values[location] = static_cast<float>(_slot_info.location);
    _values[slot_no] = static_cast<float>(_slot_info.slot_no);
    _values[presence] = present ? 1.0f : 0.0f;
    _values[vid] = static_cast<float>(_slot_info.vendor_id);
    _values[did] = static_cast<float>(_slot_info.device_id);
    _values[svid] = static_cast<float>(_slot_info.sub_vendor_id);
    _values[sdid] = static_cast<float>(_slot_info.sub_device_id);
    _values[classcode] = static_cast<float>(_slot_info.class_code);
    _values[max_power] = limits.max_power;
    _values[tgp_platform] = limits.platform;
    _values[tgp_thermal] = limits.thermal;
    _values[tgp_user] = limits.user;
    _values[tgp_vpd] = limits.vpd;
    _values[tgp] = total_graphics_power(limits);
    log_limit(max_power, present);
    log_limit(tgp, present);
    publish(dao);

    const bool comparable = limits.max_power != 0.0f && _inventory_is_up;
    _values[power_ratio] = comparable ? _values[power] / (limits.max_power * milliwatts_per_watt) : 0.0f;
    _values.publish_one(dao, power_ratio, common_thermal_dao::spike_going_high);
}

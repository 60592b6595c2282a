#include "device/storage/booted_drive_temperature.hpp"

#include "device/storage/drive_values.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_booted_drive_temperature";

enum word : std::size_t {
    temperature,
    threshold,
    margin,
    form_factor,
    interface,
    media,
    slot,
    location,
    generic_fw,
    vendor,
    word_count
};

}  // namespace

common_thermal_device_booted_drive_temperature::common_thermal_device_booted_drive_temperature(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_booted_drive_temperature),
      _values(class_name, instance,
              {{"temperature"},
               {"threshold"},
               {"margin"},
               {"form_factor"},
               {"interface"},
               {"media"},
               {"slot"},
               {"location"},
               {"generic_fw"},
               {"vendor"}}) {}

void common_thermal_device_booted_drive_temperature::get_temperature(float* destination) const {
    *destination = _values[temperature];
}

std::uint32_t common_thermal_device_booted_drive_temperature::convert_to_vendor_id(const std::string& vendor) {
    constexpr std::array<const char*, 3> vendors{"SSSTC", "Micron", "ATP"};
    for (std::uint32_t i = 0; i < vendors.size(); ++i) {
        if (vendor == vendors[i]) {
            return i + 1;
        }
    }
    return 0;
}

const boot_drive_complex_info* common_thermal_device_booted_drive_temperature::find(CARD_FORM_FACTOR& found_as) const {
    const auto index = static_cast<std::uint8_t>(_slot_num - 1);
    const boot_drive_complex_info* drive = nullptr;
    for (const CARD_FORM_FACTOR candidate : {card_form_factor_0, card_form_factor_1}) {
        if (drive == nullptr) {
            found_as = candidate;
            drive = sys_boot_logical_device::get_drive_complex_info(index, candidate);
        }
    }
    return drive;
}

void common_thermal_device_booted_drive_temperature::take(const boot_drive_complex_info& drive,
                                                          CARD_FORM_FACTOR found_as) {
    _values[temperature] = drive.temperature;
    _values[threshold] = static_cast<float>(threshold_or_usual(drive.warning_temperature));
    _values[margin] = has_valid_temperature(drive) ? drive_margin(drive) : 0.0f;
    _values[form_factor] = found_as == card_form_factor_0 ? 1.0f : 2.0f;
    _values[interface] = drive_interface(drive);
    _values[media] = drive_media(drive);
    _values[slot] = drive.slot;
    _values[location] = drive_location(drive);
    _values[generic_fw] = drive.generic_firmware;
    _values[vendor] = static_cast<float>(convert_to_vendor_id(drive.vendor));
    LOG::log(log_source, log_mask::life_cycle, "%s.%d::%s fw_ver[%s], model_num[%s]\n", get_name().c_str(),
             get_instance(), "poll", drive.firmware_version.c_str(), drive.model_number.c_str());
}

void common_thermal_device_booted_drive_temperature::clear() {
    for (std::size_t i = 0; i < word_count; ++i) {
        _values[i] = 0.0f;
    }
    _values[temperature] = _values[threshold] = _values[margin] = utils::invalid_temperature;
}

void common_thermal_device_booted_drive_temperature::poll(common_thermal_dao* dao, unsigned long) {
    CARD_FORM_FACTOR found_as = card_form_factor_0;
    const boot_drive_complex_info* drive = find(found_as);
    LOG::log(log_source, log_mask::bus,
             "common_thermal_device boot drive complex::%s - ff(%u), _slotno(%d), info(%p), succ(%d)\n", "poll",
             static_cast<unsigned>(found_as), static_cast<int>(_slot_num), static_cast<const void*>(drive),
             drive != nullptr ? 1 : 0);
    if (drive != nullptr) {
        take(*drive, found_as);
    } else {
        clear();
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

#include "device/storage/nvme_temperature.hpp"

#include "device/storage/drive_values.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;

namespace {

constexpr const char* class_name = "common_thermal_device_nvme_temperature";

struct word {
    enum : std::size_t {
        threshold,
        margin,
        temperature,
        form_factor,
        interface,
        media,
        slot,
        location,
        vid,
        did,
        svid,
        sdid,
        count
    };
};

constexpr int last_instance = 255;
constexpr int first_of_kind_0 = 65;

}  // namespace

common_thermal_device_nvme_temperature::common_thermal_device_nvme_temperature(int instance)
    : common_thermal_device(class_name, class_name, instance, utils::tdev_nvme_temperature),
      _values(class_name, instance,
              {{"threshold"},
               {"margin", utils::invalid_temperature},
               {"temperature"},
               {"form_factor"},
               {"interface"},
               {"media"},
               {"slot"},
               {"location"},
               {"vid"},
               {"did"},
               {"svid"},
               {"sdid"}}) {}

bool common_thermal_device_nvme_temperature::convert_options(int instance, std::uint8_t& index, std::uint8_t& kind) {
    if (instance < 0 || instance > last_instance) {
        return false;
    }
    kind = instance < first_of_kind_0 ? 1 : 0;
    index = static_cast<std::uint8_t>(kind == 1 ? instance : instance - first_of_kind_0);
    return true;
}

void common_thermal_device_nvme_temperature::get_nvme_info(float& temperature, float& form_factor, float& interface,
                                                           float& threshold, float& margin, std::uint16_t& vid,
                                                           std::uint16_t& did, std::uint16_t& svid,
                                                           std::uint16_t& sdid) const {
    temperature = _values[word::temperature];
    form_factor = _values[word::form_factor];
    interface = _values[word::interface];
    threshold = _values[word::threshold];
    margin = _values[word::margin];
    vid = saturate_to_word(_values[word::vid]);
    did = saturate_to_word(_values[word::did]);
    svid = saturate_to_word(_values[word::svid]);
    sdid = saturate_to_word(_values[word::sdid]);
}

void common_thermal_device_nvme_temperature::take(const drive_complex_info& drive) {
    const bool valid = has_valid_temperature(drive);
    _values[word::threshold] = static_cast<float>(threshold_or_usual(drive.warning_temperature));
    _values[word::margin] = valid ? drive_margin(drive) : utils::invalid_temperature;
    _values[word::temperature] = valid ? drive.temperature : utils::invalid_temperature;
    _values[word::form_factor] = drive_form_factor(drive);
    _values[word::interface] = drive_interface(drive);
    _values[word::media] = drive_media(drive);
    _values[word::slot] = drive.slot;
    _values[word::location] = drive_location(drive);
    _values[word::vid] = drive.vendor_id;
    _values[word::did] = drive.device_id;
    _values[word::svid] = drive.sub_vendor_id;
    _values[word::sdid] = drive.sub_device_id;
}

void common_thermal_device_nvme_temperature::clear() {
    for (std::size_t i = 0; i < word::count; ++i) {
        _values[i] = 0.0f;
    }
    _values[word::margin] = _values[word::temperature] = utils::invalid_temperature;
}

void common_thermal_device_nvme_temperature::poll(common_thermal_dao* dao, unsigned long) {
    std::uint8_t index = 0, kind = 0;
    const drive_complex_info* drive = convert_options(get_instance(), index, kind)
                                          ? sep_comm_logical_device::get_drive_complex_info(index, kind)
                                          : nullptr;
    _present = drive != nullptr;
    LOG::log(log_source, log_mask::bus, "common_thermal_device_nvme_temperature::%s - succ(%d)\n", "poll",
             _present ? 1 : 0);
    if (drive != nullptr) {
        take(*drive);
    } else {
        clear();
    }
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

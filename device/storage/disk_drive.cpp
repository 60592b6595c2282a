#include "device/storage/disk_drive.hpp"

#include "device/storage/nvme_temperature.hpp"
#include "foundation/float_conversion.hpp"
#include "foundation/log_masks.hpp"

using utils = common_thermal_utils;
using presence_device = common_thermal_device_disk_drive_presence;

namespace {

constexpr const char* presence_class = "common_thermal_device_disk_drive_presence";
constexpr const char* temp_class = "common_thermal_device_disk_drive_temp";
constexpr const char* quantity_class = "common_thermal_device_disk_drive_quantity";
constexpr const char* mask_class = "common_thermal_device_disk_drive_quantity_mask_30";
constexpr const char* info_class = "common_thermal_device_disk_drive_info";

enum mask_word : std::size_t { mask_overflow, mask };
enum info_word : std::size_t {
    type,
    formfactor,
    manu,
    high_temperature,
    nvme_temp,
    drive_temp,
    threshold,
    margin,
    vid,
    did,
    svid,
    sdid
};

constexpr unsigned mask_bits = 30;

// How the type of an NVMe drive shows, whatever the property says.
constexpr float nvme_interface = 2.0f;
constexpr float nvme_type = 3.0f;
constexpr float nvme_type_of_form_factor_4 = 8.0f;

// The firmware takes property paths of up to 64 characters; those of a bay stay below.
static_assert(sizeof "/dc/zorm/dm/planar/0/hdd/-2147483648/presence" <= 64);

std::string property_path(int instance, const char* leaf) {
    return "/dc/zorm/dm/planar/0/hdd/" + std::to_string(instance) + "/" + leaf;
}

bool is_present(const presence_device& drive) { return drive.is_presence(); }

}  // namespace

common_thermal_device_disk_drive_presence::common_thermal_device_disk_drive_presence(int instance)
    : common_thermal_device(presence_class, presence_class, instance, utils::tdev_disk_drive_presence),
      _values(presence_class, instance, {{"presence"}}),
      _presence_path(property_path(instance, "presence")) {}

void common_thermal_device_disk_drive_presence::poll(common_thermal_dao* dao, unsigned long) {
    const bmc_property* property = DM::get_property(_presence_path);
    _values[0] = property != nullptr && property->get_byte() != 0 ? 1.0f : 0.0f;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_disk_drive_temp::common_thermal_device_disk_drive_temp(int instance)
    : port_sensor({temp_class, utils::tdev_disk_drive_temp, "temperature", "PORT_HDD_TEMPERATURE"},
                  device_port::kind::integer, instance) {}

void common_thermal_device_disk_drive_temp::poll(common_thermal_dao* dao, unsigned long) {
    std::uint32_t reading = 0;
    const bool read = any_depend<presence_device>(utils::tdev_disk_drive_presence, is_present) && _port.is_bound() &&
                      _port.read_port_integer(&reading);
    if (read) {
        _values[0] = static_cast<float>(reading);
    }
    LOG::log(log_source, log_mask::bus,
             "common_thermal_device_disk_drive_temp::%s - val(%d), val_temperature(%f), succ(%d)\n", "poll",
             static_cast<int>(reading), shown(_values[0]), read ? 1 : 0);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_disk_drive_quantity::common_thermal_device_disk_drive_quantity(int instance)
    : common_thermal_device(quantity_class, quantity_class, instance, utils::tdev_disk_drive_quantity),
      _values(quantity_class, instance, {{"quentity"}}) {}

void common_thermal_device_disk_drive_quantity::poll(common_thermal_dao* dao, unsigned long) {
    unsigned present = 0;
    for_each_depend<presence_device>(utils::tdev_disk_drive_presence,
                                     [&](const presence_device& drive) { present += is_present(drive) ? 1 : 0; });
    _values[0] = static_cast<float>(present);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_disk_drive_quantity_mask_30::common_thermal_device_disk_drive_quantity_mask_30(int instance)
    : common_thermal_device(mask_class, mask_class, instance, utils::tdev_disk_drive_quantity),
      _values(mask_class, instance, {{"quentity_mask_overflow"}, {"quentity_mask"}}) {}

void common_thermal_device_disk_drive_quantity_mask_30::poll(common_thermal_dao* dao, unsigned long) {
    unsigned bays = 0;
    std::uint32_t present = 0;
    for_each_depend<presence_device>(utils::tdev_disk_drive_presence, [&](const presence_device& drive) {
        if (bays < mask_bits && is_present(drive)) {
            present |= 1u << bays;
        }
        ++bays;
    });
    _values[mask_overflow] = bays > mask_bits ? static_cast<float>(bays - mask_bits) : 0.0f;
    _values[mask] = static_cast<float>(present);
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

common_thermal_device_disk_drive_info::common_thermal_device_disk_drive_info(int instance)
    : common_thermal_device(info_class, info_class, instance, utils::tdev_disk_drive_info),
      _values(info_class, instance,
              {{"type"},
               {"formfactor"},
               {"manu"},
               {"high_temperature"},
               {"nvme_temp"},
               {"drive_temp"},
               {"threshold"},
               {"margin"},
               {"vid"},
               {"did"},
               {"svid"},
               {"sdid"}}),
      _type_path(property_path(instance, "type")) {}

void common_thermal_device_disk_drive_info::take_drive() {
    const bool present = any_depend<presence_device>(utils::tdev_disk_drive_presence, is_present);
    float temperature = 0.0f;
    const bmc_property* property = nullptr;
    if (present) {
        for_each_depend<common_thermal_device_disk_drive_temp>(
            utils::tdev_disk_drive_temp,
            [&](const common_thermal_device_disk_drive_temp& sensor) { sensor.get_temperature(&temperature); });
        property = DM::get_property(_type_path);
    }
    const std::uint8_t drive_type = property != nullptr ? property->get_byte() : std::uint8_t{0};
    LOG::log(log_source, log_mask::bus,
             "common_thermal_device_disk_drive_info::%s - type(%d), drive_temp(%f), high_temp(%f), succ(%d)\n", "poll",
             +drive_type, shown(temperature), shown(_values[high_temperature]), property != nullptr ? 1 : 0);
    if (present) {
        _values[type] = drive_type;
        _values[drive_temp] = _values[high_temperature] =
            property != nullptr ? temperature : utils::invalid_temperature;
    }
}

void common_thermal_device_disk_drive_info::take_nvme() {
    const common_thermal_device_nvme_temperature* drive = nullptr;
    for_each_depend<common_thermal_device_nvme_temperature>(
        utils::tdev_nvme_temperature, [&](const common_thermal_device_nvme_temperature& candidate) {
            drive = candidate.is_presence() ? &candidate : drive;
        });
    if (drive == nullptr) {
        return;
    }
    float interface = 0.0f;
    std::uint16_t vendor = 0, device = 0, sub_vendor = 0, sub_device = 0;
    drive->get_nvme_info(_values[nvme_temp], _values[formfactor], interface, _values[threshold], _values[margin],
                         vendor, device, sub_vendor, sub_device);
    if (interface == nvme_interface) {
        _values[type] = _values[formfactor] == 4.0f ? nvme_type_of_form_factor_4 : nvme_type;
    }
    _values[high_temperature] = _values[nvme_temp];
    _values[vid] = vendor;
    _values[did] = device;
    _values[svid] = sub_vendor;
    _values[sdid] = sub_device;
}

void common_thermal_device_disk_drive_info::poll(common_thermal_dao* dao, unsigned long) {
    take_drive();
    take_nvme();
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

#include "device/storage/backplane.hpp"

#include "foundation/float_conversion.hpp"

using utils = common_thermal_utils;

namespace {

constexpr presence_sensor::row presence_row{
    {"common_thermal_device_disk_drive_backplane_presence", utils::tdev_disk_drive_backplane_presence, "presence",
     "PORT_HDD_BP_PRESENCE"},
    presence_sensor::gate::ipmi_ready,
    false,
    common_thermal_dao::spike_going_high};

constexpr const char* info_class = "common_thermal_device_disk_drive_backplane_info";
enum word : std::size_t { vpdid, posid, maxdrive };

// The information block of a backplane.
constexpr std::uint32_t block_size = 14;
constexpr std::size_t mark_at = 0, vpd_at = 8, position_at = 12;
using block = std::array<std::uint8_t, block_size>;

constexpr std::uint16_t low_byte_first = 0x00FE;  // any other mark means that the fields are high byte first

constexpr std::uint16_t word_at(const block& bytes, std::size_t low, std::size_t high) {
    return static_cast<std::uint16_t>(bytes[low] | bytes[high] << 8);
}

constexpr std::uint16_t field_at(const block& bytes, std::size_t offset) {
    return word_at(bytes, mark_at, mark_at + 1) == low_byte_first ? word_at(bytes, offset, offset + 1)
                                                                  : word_at(bytes, offset + 1, offset);
}

}  // namespace

common_thermal_device_disk_drive_backplane_presence::common_thermal_device_disk_drive_backplane_presence(int instance)
    : presence_sensor(presence_row, instance) {}

common_thermal_device_disk_drive_backplane_info::common_thermal_device_disk_drive_backplane_info(int instance)
    : common_thermal_device(info_class, info_class, instance, utils::tdev_disk_drive_backplane_info),
      _values(info_class, instance, {{"vpdid"}, {"posid"}, {"maxdrive"}}),
      _port(*this, device_port::kind::block, "PORT_HDD_BP_INFO") {}

void common_thermal_device_disk_drive_backplane_info::update_bp_info(std::uint16_t, std::uint16_t) {
    _values[maxdrive] = 0.0f;
}

void common_thermal_device_disk_drive_backplane_info::read(identifiers& backplane) {
    block bytes{};
    std::uint32_t got = 0;
    _port.seek_port_block(0);
    // A key that nobody serves reads as a success without bytes.
    if (_port.read_port_block(bytes.data(), &got, block_size) && got == block_size) {
        backplane = {field_at(bytes, vpd_at), field_at(bytes, position_at)};
    }
}

void common_thermal_device_disk_drive_backplane_info::poll(common_thermal_dao* dao, unsigned long) {
    identifiers backplane{saturate_to_word(_values[vpdid]), saturate_to_word(_values[posid])};
    for_each_depend<common_thermal_device_disk_drive_backplane_presence>(
        utils::tdev_disk_drive_backplane_presence,
        [&](const common_thermal_device_disk_drive_backplane_presence& presence) {
            if (!presence.is_presence()) {
                backplane = {};
            } else if (backplane.vpd == 0 || backplane.position == 0) {
                read(backplane);
            }
        });
    update_bp_info(backplane.vpd, backplane.position);
    _values[vpdid] = backplane.vpd;
    _values[posid] = backplane.position;
    _values.publish(dao, common_thermal_dao::spike_going_high);
}

#include <gmock/gmock.h>

#include "device/storage/booted_drive_temperature.hpp"
#include "device/storage/nvme_temperature.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using nvme_device = common_thermal_device_nvme_temperature;
using boot_device = common_thermal_device_booted_drive_temperature;

class drive_records_test : public device_test {
protected:
    thermal_host::drive_cage::nvme_drive& plug(thermal_host::nvme_address address) {
        return host.drives.plug(address.index, {}, address, {});
    }
};

TEST_F(drive_records_test, the_instance_names_the_record) {
    const std::tuple<int, thermal_host::nvme_address, bool> rows[] = {
        {0, {0, 1}, true},    {64, {64, 1}, true},   {65, {0, 0}, true}, {255, {190, 0}, true},
        {256, {0, 1}, false}, {-1, {255, 1}, false}, {65, {0, 1}, false}};
    for (const auto& [instance, address, found] : rows) {
        const auto& drive = plug(address);
        nvme_device device(instance);
        poll(device);
        EXPECT_EQ(device.is_presence(), found) << instance;
        EXPECT_EQ(drive.reads(), found ? 1u : 0u) << instance;
        host.drives.pull(address.index);
    }
}

TEST_F(drive_records_test, margin_is_what_is_left_below_the_warning) {
    // Limit and degrees of the record; threshold, margin and temperature of an NVMe drive; temperature, threshold and
    // margin of the boot drive; lines about the heat.
    const std::tuple<std::uint8_t, std::uint8_t, const char*, const char*, int> rows[] = {
        {0, 35, "70 35 35", "35 70 35", 0}, {60, 60, "60 0 60", "60 60 0", 0},      {60, 61, "60 0 61", "61 60 0", 2},
        {0, 71, "70 0 71", "71 70 0", 2},   {80, 255, "80 255 255", "255 80 0", 0}, {80, 0, "80 255 255", "0 80 0", 0}};
    auto& drive = plug({1, 1});
    auto& boot = host.drives.plug_boot(0, card_form_factor_0, {});
    nvme_device nvme(1);
    boot_device booted(1);
    booted.set_num(1);
    for (const auto& [limit, degrees, of_record, of_boot, lines] : rows) {
        drive.info.warning_temperature = boot.info.warning_temperature = limit;
        drive.info.temperature = boot.info.temperature = degrees;
        host.log.captured().clear();
        const std::string name = "mi.wctemp(" + std::to_string(limit) + ") temp(" + std::to_string(degrees) + ")\n";
        EXPECT_THAT(told(nvme), testing::StartsWith(of_record)) << name;
        EXPECT_THAT(told(booted), testing::StartsWith(of_boot)) << name;
        EXPECT_EQ(lines_with("poll nvme temp invalid:: " + name), lines) << name;
    }
}

TEST_F(drive_records_test, flags_decode_in_their_order) {
    // Flags and placement of the record; form factor, interface, media, slot and location that are told.
    const std::tuple<std::uint8_t, std::uint8_t, const char*> rows[] = {
        {0x14, 0x00, "1 0 0 0 0"}, {0x2C, 0x07, "2 0 2 0 3"}, {0x64, 0x02, "3 0 0 0 1"},
        {0x63, 0xF9, "4 2 2 0 0"}, {0xC1, 0x05, "5 1 1 0 2"}, {0x02, 0xF8, "0 2 0 0 0"}};
    auto& drive = plug({1, 1});
    nvme_device nvme(1);
    for (const auto& [flags, placement, decoded] : rows) {
        drive.info.flags = flags;
        drive.info.placement = placement;
        EXPECT_EQ(told(nvme), "70 255 255 " + std::string(decoded) + " 0 0 0 0") << +flags;
    }
}

TEST_F(drive_records_test, nvme_values_start_and_end_without_a_record) {
    nvme_device nvme(1);
    EXPECT_EQ(named_values(nvme),
              "threshold=0 margin=255 temperature=0 form_factor=0 interface=0 media=0 slot=0 location=0 "
              "vid=0 did=0 svid=0 sdid=0");
    auto& drive = plug({1, 1});
    drive.info = {{9, 0, 0, 0, 30}, 1, 2, 3, 4};
    EXPECT_EQ(told(nvme), "70 40 30 0 0 0 9 0 1 2 3 4");
    drive.fail_reads();
    EXPECT_EQ(told(nvme), "0 255 255 0 0 0 0 0 0 0 0 0");
    EXPECT_EQ(lines_with("common_thermal_device_nvme_temperature::poll - succ(0)\n"), 1);
}

TEST_F(drive_records_test, boot_drive_is_looked_for_on_both_carriers) {
    const boot_drive_complex_info info{{5, 0x81, 0x06, 75, 40}, 17, "Micron", "F1", "M1"};
    boot_device boot(3);
    const char *first = "40 75 35 1 1 1 5 3 17 2", *second = "40 75 35 2 1 1 5 3 17 2";
    host.drives.plug_boot(254, card_form_factor_1, info);
    EXPECT_EQ(told(boot), second) << "no number asks for index 254";
    boot.set_num(1);
    EXPECT_EQ(told(boot), "255 255 255 0 0 0 0 0 0 0");
    auto& on_first = host.drives.plug_boot(0, card_form_factor_0, info);
    host.drives.plug_boot(0, card_form_factor_1, info);
    EXPECT_EQ(told(boot), first);
    EXPECT_EQ(lines_with("common_thermal_device_booted_drive_temperature.3::poll fw_ver[F1], model_num[M1]\n"), 2);
    on_first.fail_reads(1);
    EXPECT_EQ(told(boot), second);
    EXPECT_EQ(lines_with("boot drive complex::poll - ff(1), _slotno(-1), info("), 1);
    EXPECT_EQ(lines_with("boot drive complex::poll - ff(1), _slotno(1), info("), 2);
    host.drives.pull_boot(0, card_form_factor_1);
    EXPECT_EQ(told(boot), first);
}

TEST_F(drive_records_test, only_the_exact_vendor_has_a_number) {
    const std::pair<const char*, std::uint32_t> rows[] = {{"SSSTC", 1}, {"Micron", 2}, {"ATP", 3},
                                                          {"ATP ", 0},  {"micron", 0}, {"", 0}};
    for (const auto& [vendor, number] : rows) {
        EXPECT_EQ(boot_device::convert_to_vendor_id(vendor), number) << vendor;
    }
}

}  // namespace

#include "device/storage/booted_drive_temperature.hpp"
#include "device/storage/nvme_temperature.hpp"
#include "tests/device/device_fixture.hpp"
#include "tests/device/storage/debug_text.hpp"

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
    const struct {
        int instance;
        thermal_host::nvme_address address;
        bool found;
    } rows[] = {{0, {0, 1}, true},    {64, {64, 1}, true},   {65, {0, 0}, true}, {255, {190, 0}, true},
                {256, {0, 1}, false}, {-1, {255, 1}, false}, {65, {0, 1}, false}};
    for (const auto& r : rows) {
        const auto& drive = plug(r.address);
        nvme_device device(r.instance);
        poll(device);
        EXPECT_EQ(device.is_presence(), r.found) << r.instance;
        EXPECT_EQ(drive.reads(), r.found ? 1u : 0u) << r.instance;
        EXPECT_EQ(stored("nvme_temperature.temperature", r.instance), 255.0f) << "0 degrees are no reading";
        host.drives.pull(r.address.index);
    }
}

TEST_F(drive_records_test, margin_is_what_is_left_below_the_warning) {
    const struct {
        std::uint8_t limit, degrees;
        float threshold, temperature, margin, boot_temperature, boot_margin;
        int lines;
    } rows[] = {{0, 35, 70, 35, 35, 35, 35, 0}, {60, 60, 60, 60, 0, 60, 0, 0},      {60, 61, 60, 61, 0, 61, 0, 2},
                {0, 71, 70, 71, 0, 71, 0, 2},   {80, 255, 80, 255, 255, 255, 0, 0}, {80, 0, 80, 255, 255, 0, 0, 0}};
    auto& drive = plug({1, 1});
    auto& boot = host.drives.plug_boot(0, card_form_factor_0, {});
    nvme_device nvme(1);
    boot_device booted(1);
    booted.set_num(1);
    for (const auto& r : rows) {
        drive.info.warning_temperature = boot.info.warning_temperature = r.limit;
        drive.info.temperature = boot.info.temperature = r.degrees;
        host.log.captured().clear();
        poll(nvme);
        poll(booted);
        const std::string name = std::to_string(r.limit) + " " + std::to_string(r.degrees);
        EXPECT_EQ(stored("nvme_temperature.threshold"), r.threshold) << name;
        EXPECT_EQ(stored("nvme_temperature.temperature"), r.temperature) << name;
        EXPECT_EQ(stored("nvme_temperature.margin"), r.margin) << name;
        EXPECT_EQ(stored("booted_drive_temperature.threshold"), r.threshold) << name;
        EXPECT_EQ(stored("booted_drive_temperature.temperature"), r.boot_temperature) << name;
        EXPECT_EQ(stored("booted_drive_temperature.margin"), r.boot_margin) << name;
        EXPECT_TRUE(nvme.is_presence()) << name;
        EXPECT_EQ(lines_with("poll nvme temp invalid:: mi.wctemp(" + std::to_string(r.limit) + ") temp(" +
                             std::to_string(r.degrees) + ")\n"),
                  r.lines)
            << name;
    }
}

TEST_F(drive_records_test, flags_decode_in_their_order) {
    const struct {
        std::uint8_t flags, placement;
        float form_factor, interface, media, location;
    } rows[] = {{0x14, 0x00, 1, 0, 0, 0}, {0x2C, 0x07, 2, 0, 2, 3}, {0x64, 0x02, 3, 0, 0, 1},
                {0x63, 0xF9, 4, 2, 2, 0}, {0xC1, 0x05, 5, 1, 1, 2}, {0x02, 0xF8, 0, 2, 0, 0}};
    auto& drive = plug({1, 1});
    nvme_device nvme(1);
    for (const auto& r : rows) {
        drive.info.flags = r.flags;
        drive.info.placement = r.placement;
        poll(nvme);
        EXPECT_EQ(stored("nvme_temperature.form_factor"), r.form_factor) << +r.flags;
        EXPECT_EQ(stored("nvme_temperature.interface"), r.interface) << +r.flags;
        EXPECT_EQ(stored("nvme_temperature.media"), r.media) << +r.flags;
        EXPECT_EQ(stored("nvme_temperature.location"), r.location) << +r.flags;
    }
}

TEST_F(drive_records_test, nvme_values_start_and_end_without_a_record) {
    const auto text = [](float temperature) {
        return debug_text("nvme_temperature", 1,
                          {{"threshold", 0},
                           {"margin", 255},
                           {"temperature", temperature},
                           {"form_factor", 0},
                           {"interface", 0},
                           {"media", 0},
                           {"slot", 0},
                           {"location", 0},
                           {"vid", 0},
                           {"did", 0},
                           {"svid", 0},
                           {"sdid", 0}});
    };
    nvme_device nvme(1);
    EXPECT_EQ(nvme.debug(), text(0));
    auto& drive = plug({1, 1});
    drive.info = {{9, 0, 0, 0, 30}, 1, 2, 3, 4};
    poll(nvme);
    EXPECT_EQ(stored("nvme_temperature.slot"), 9.0f);
    EXPECT_EQ(stored("nvme_temperature.sdid"), 4.0f);
    drive.fail_reads();
    poll(nvme);
    EXPECT_EQ(nvme.debug(), text(255));
    EXPECT_EQ(lines_with("common_thermal_device_nvme_temperature::poll - succ(0)\n"), 1);
}

TEST_F(drive_records_test, boot_drive_is_looked_for_on_both_carriers) {
    const boot_drive_complex_info info{{5, 0x81, 0x06, 75, 40}, 17, "Micron", "F1", "M1"};
    boot_device boot(3);
    host.drives.plug_boot(254, card_form_factor_1, info);
    poll(boot);
    EXPECT_EQ(stored("booted_drive_temperature.form_factor", 3), 2.0f) << "no number asks for index 254";
    boot.set_num(1);
    poll(boot);
    EXPECT_EQ(boot.debug(), debug_text("booted_drive_temperature", 3,
                                       {{"temperature", 255},
                                        {"threshold", 255},
                                        {"margin", 255},
                                        {"form_factor", 0},
                                        {"interface", 0},
                                        {"media", 0},
                                        {"slot", 0},
                                        {"location", 0},
                                        {"generic_fw", 0},
                                        {"vendor", 0}}));
    auto& first = host.drives.plug_boot(0, card_form_factor_0, info);
    host.drives.plug_boot(0, card_form_factor_1, info);
    poll(boot);
    EXPECT_EQ(boot.debug(), debug_text("booted_drive_temperature", 3,
                                       {{"temperature", 40},
                                        {"threshold", 75},
                                        {"margin", 35},
                                        {"form_factor", 1},
                                        {"interface", 1},
                                        {"media", 1},
                                        {"slot", 5},
                                        {"location", 3},
                                        {"generic_fw", 17},
                                        {"vendor", 2}}));
    EXPECT_EQ(lines_with("common_thermal_device_booted_drive_temperature.3::poll fw_ver[F1], model_num[M1]\n"), 2);
    first.fail_reads(1);
    poll(boot);
    EXPECT_EQ(stored("booted_drive_temperature.form_factor", 3), 2.0f);
    EXPECT_EQ(lines_with("boot drive complex::poll - ff(1), _slotno(-1), info("), 1);
    EXPECT_EQ(lines_with("boot drive complex::poll - ff(1), _slotno(1), info("), 2);
    host.drives.pull_boot(0, card_form_factor_1);
    poll(boot);
    EXPECT_EQ(stored("booted_drive_temperature.form_factor", 3), 1.0f);
}

TEST_F(drive_records_test, only_the_exact_vendor_has_a_number) {
    const std::pair<const char*, std::uint32_t> rows[] = {{"SSSTC", 1}, {"Micron", 2}, {"ATP", 3},
                                                          {"ATP ", 0},  {"micron", 0}, {"", 0}};
    for (const auto& [vendor, number] : rows) {
        EXPECT_EQ(boot_device::convert_to_vendor_id(vendor), number) << vendor;
    }
}

}  // namespace

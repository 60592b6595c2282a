#include "device/storage/disk_drive.hpp"

#include "device/storage/backplane.hpp"
#include "device/storage/nvme_temperature.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using utils = common_thermal_utils;

class backplane_test : public device_test {
protected:
    backplane_test() {
        status.set_stage(utils::ipmi_ready, true);
        for (unsigned i = 0; i < 2; ++i) {
            presence[i].set_port_input(i);
            link(presence[i], {&status});
        }
        info.set_port_input(9u);
    }

    // The two identifiers and the number of drives after a poll of everything.
    std::string identifiers() { return told(presence[0], presence[1], info); }

    common_thermal_device_event_status status{1};
    thermal_host::number_line* lines[2] = {&host.ports.add_number(0u, 1), &host.ports.add_number(1u, 1)};
    thermal_host::block_line& block =
        host.ports.add_block(9u, {0xFE, 0, 9, 9, 9, 9, 9, 9, 0x34, 0x12, 9, 9, 0x02, 0x01, 7, 7});
    common_thermal_device_disk_drive_backplane_presence presence[2] = {
        common_thermal_device_disk_drive_backplane_presence(1), common_thermal_device_disk_drive_backplane_presence(2)};
    common_thermal_device_disk_drive_backplane_info info{1};
};

TEST_F(backplane_test, identifiers_follow_the_byte_order_mark_and_are_read_once) {
    link(info, {&presence[0]});
    block.fail_reads(1);
    EXPECT_EQ(identifiers(), "0 0 0");
    EXPECT_EQ(identifiers(), "4660 258 0");
    block.bytes()[0] = 0xFF;
    EXPECT_EQ(identifiers(), "4660 258 0") << "known already";
    EXPECT_EQ(block.reads(), 2u);
    lines[0]->set_value(0);
    EXPECT_EQ(identifiers(), "0 0 0");
    lines[0]->set_value(1);
    EXPECT_EQ(identifiers(), "13330 513 0") << "another backplane, high byte first";
}

TEST_F(backplane_test, an_identifier_of_0_is_asked_for_again_from_the_start_of_the_block) {
    link(info, {&presence[0]});
    block.bytes()[12] = block.bytes()[13] = 0;
    EXPECT_EQ(identifiers(), "4660 0 0");
    block.bytes()[12] = 5;
    EXPECT_EQ(identifiers(), "4660 5 0");
    lines[0]->set_value(0);
    identifiers();
    lines[0]->set_value(1);
    block.bytes().resize(13);
    EXPECT_EQ(identifiers(), "0 0 0") << "a short block is no answer";
}

TEST_F(backplane_test, the_last_absent_backplane_clears_what_an_earlier_one_gave) {
    link(info, {&presence[0], &presence[1]});
    EXPECT_EQ(identifiers(), "4660 258 0");
    EXPECT_EQ(block.reads(), 1u) << "the first answers for both";
    lines[1]->set_value(0);
    EXPECT_EQ(identifiers(), "0 0 0");
    status.set_stage(utils::ipmi_ready, false);
    lines[1]->set_value(1);
    EXPECT_EQ(identifiers(), "0 0 0") << "nothing is present before the controller is ready";
    status.set_stage(utils::ipmi_ready, true);
    EXPECT_EQ(identifiers(), "4660 258 0");
}

class bays_test : public device_test {
protected:
    // Adds bays up to this instance, from 1; each holds a drive if its bit is set.
    void add_bays(int last, std::uint32_t with_drive) {
        for (int bay = static_cast<int>(bays.size()) + 1; bay <= last; ++bay) {
            bays.push_back(std::make_unique<common_thermal_device_disk_drive_presence>(bay));
            link(quantity, {bays.back().get()});
            link(mask, {bays.back().get()});
            if ((with_drive >> (bay - 1) & 1u) != 0) host.drives.plug(bay);
            poll(*bays.back());
        }
        poll(quantity);
        poll(mask);
    }

    std::vector<std::unique_ptr<common_thermal_device_disk_drive_presence>> bays;
    common_thermal_device_disk_drive_quantity quantity{1};
    common_thermal_device_disk_drive_quantity_mask_30 mask{1};
};

TEST_F(bays_test, quantity_and_mask_tell_how_many_and_which) {
    add_bays(3, 0b101);
    EXPECT_EQ(named_values(quantity), "quentity=2");
    EXPECT_EQ(named_values(mask), "quentity_mask_overflow=0 quentity_mask=5");
    host.drives.plug(2, 7);
    host.drives.pull(1);
    EXPECT_TRUE(host.properties.find("/dc/zorm/dm/planar/0/hdd/3/presence")->set(std::uint8_t{2}, 0, 0));
    for (auto& bay : bays) poll(*bay);
    EXPECT_EQ(told(quantity), "2") << "any byte but 0 is a drive";
    EXPECT_EQ(told(mask), "0 6");
    filter("disk_drive_presence.presence", 0.5f, 4);
    add_bays(4, 0b1000);
    EXPECT_EQ(told(quantity), "2") << "the spike filter does not yet believe the last";
}

TEST_F(bays_test, mask_ends_at_30_bays_and_at_the_precision_of_a_float) {
    const std::tuple<int, const char*, float> rows[] = {
        {29, "0 1", 1}, {30, "0 5.36871e+08", 2}, {31, "1 5.36871e+08", 3}, {32, "2 5.36871e+08", 3}};
    for (const auto& [last, bits, drives] : rows) {
        add_bays(last, 1u | 1u << 29 | 1u << 30);
        EXPECT_EQ(told(mask), bits) << last;
        EXPECT_EQ(stored("disk_drive_quantity.quentity"), drives) << last;
    }
    EXPECT_EQ(stored("disk_drive_quantity_mask_30.quentity_mask"), 536870912.0f) << "bit 29 hides bit 0";
}

TEST_F(bays_test, temperature_survives_its_drive_and_failed_reads) {
    auto& line = host.ports.add_number("hdd", 41);
    common_thermal_device_disk_drive_presence bay(1);
    common_thermal_device_disk_drive_temp sensor(1);
    sensor.set_port_input("");
    sensor.set_port_input("hdd");
    EXPECT_EQ(reading(sensor), 0.0f) << "no drive to ask for";
    link(sensor, {&bay});
    const auto reading_with = [&](bool drive) {
        drive ? static_cast<void>(host.drives.plug(1)) : host.drives.pull(1);
        poll(bay);
        return reading(sensor);
    };
    EXPECT_EQ(reading_with(true), 41.0f);
    EXPECT_EQ(lines_with("disk_drive_temp::poll - val(41), val_temperature(41.000000), succ(1)\n"), 1);
    line.set_value(50);
    line.fail_reads(1);
    EXPECT_EQ(reading(sensor), 41.0f);
    EXPECT_EQ(reading_with(false), 41.0f);
    EXPECT_EQ(reading_with(true), 50.0f);
}

class drive_info_test : public device_test {
protected:
    drive_info_test() {
        sensor.set_port_input(1u);
        link(sensor, {&bay});
        link(info, {&bay, &sensor, &nvme});
    }

    void poll_all() {
        poll(bay);
        poll(sensor);
        poll(nvme);
        poll(info);
    }

    // Words of the merged values with what each should be.
    void expect(const std::string& when, std::initializer_list<std::pair<const char*, float>> rows) {
        poll_all();
        for (const auto& [word, value] : rows) {
            EXPECT_EQ(stored("disk_drive_info." + std::string(word)), value) << when << ": " << word;
        }
    }

    static drive_complex_info nvme_drive(std::uint8_t flags, std::uint8_t limit, std::uint8_t degrees) {
        return {{3, flags, 0, limit, degrees}, 0x1234, 0xA80A, 0x5678, 0xFFFF};
    }

    static constexpr thermal_host::nvme_address address{1, 1};
    thermal_host::number_line& line = host.ports.add_number(1u, 38);
    common_thermal_device_disk_drive_presence bay{1};
    common_thermal_device_disk_drive_temp sensor{1};
    common_thermal_device_nvme_temperature nvme{1};
    common_thermal_device_disk_drive_info info{1};
};

TEST_F(drive_info_test, a_drive_without_record_shows_its_port_once_its_type_is_known) {
    expect("empty bay", {{"type", 0}, {"drive_temp", 0}, {"high_temperature", 0}, {"margin", 0}});
    host.drives.plug(1);
    expect("no type", {{"type", 0}, {"drive_temp", 255}, {"high_temperature", 255}});
    host.drives.plug(1, 6);
    expect("typed", {{"type", 6}, {"drive_temp", 38}, {"high_temperature", 38}, {"nvme_temp", 0}, {"manu", 0}});
    EXPECT_EQ(lines_with("disk_drive_info::poll - type(6), drive_temp(38.000000), high_temp(255.000000), succ(1)\n"),
              1);
    line.fail_reads();
    expect("port lost", {{"drive_temp", 38}});
    host.drives.pull(1);
    host.properties.find("/dc/zorm/dm/planar/0/hdd/1/type")->set(std::uint8_t{9}, 0, 0);
    expect("pulled", {{"type", 6}, {"drive_temp", 38}, {"high_temperature", 38}});
}

TEST_F(drive_info_test, an_nvme_record_overrides_what_the_bay_says) {
    auto& drive = host.drives.plug(1, 6, address, nvme_drive(0x22, 70, 45));
    expect("form factor 4", {{"type", 8}, {"formfactor", 4}, {"high_temperature", 45}, {"drive_temp", 38}});
    EXPECT_EQ(named_values(info),
              "type=8 formfactor=4 manu=0 high_temperature=45 nvme_temp=45 drive_temp=38 threshold=70 margin=25 "
              "vid=4660 did=43018 svid=22136 sdid=65535");
    drive.info.flags = 0x0A;
    expect("form factor 2", {{"type", 3}, {"formfactor", 2}});
    drive.info.flags = 0x21;
    expect("another interface", {{"type", 6}, {"formfactor", 4}});
    drive.stuck_temperature = 255;
    expect("no reading", {{"high_temperature", 255}, {"nvme_temp", 255}, {"margin", 255}, {"threshold", 70}});
    drive.stuck_temperature.reset();
    drive.fail_reads(1);
    expect("record lost", {{"high_temperature", 38}, {"nvme_temp", 255}, {"vid", 4660}, {"type", 6}});
    expect("record back", {{"high_temperature", 45}, {"margin", 25}});
    host.drives.pull(1);
    expect("pulled", {{"high_temperature", 45}, {"margin", 25}, {"vid", 4660}});
    EXPECT_FALSE(nvme.is_presence());
}

TEST_F(drive_info_test, a_spike_of_the_record_does_not_reach_the_merged_values) {
    auto& drive = host.drives.plug(1, 6, address, nvme_drive(0x02, 70, 45));
    filter("nvme_temperature.temperature", 60);
    expect("usual", {{"nvme_temp", 45}});
    drive.info.temperature = 65;
    expect("spike", {{"nvme_temp", 45}, {"high_temperature", 45}, {"margin", 5}});
    expect("stays", {{"nvme_temp", 65}, {"high_temperature", 65}});
}

TEST_F(drive_info_test, the_last_of_several_dependencies_stands) {
    common_thermal_device_nvme_temperature second(2), absent(3);
    common_thermal_device_disk_drive_temp unread(2);
    link(info, {&second, &absent, &unread});
    host.drives.plug(1, 6, address, nvme_drive(0x02, 70, 45));
    host.drives.plug(2, 6, {2, 1}, nvme_drive(0x11, 60, 40));
    poll(second);
    poll(absent);
    expect("two records", {{"type", 6}, {"formfactor", 1}, {"nvme_temp", 40}, {"margin", 20}, {"drive_temp", 0}});
}

}  // namespace

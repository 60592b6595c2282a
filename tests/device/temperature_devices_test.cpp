#include "device/ambient.hpp"
#include "device/fpga_capabilities.hpp"
#include "device/generic_temperature.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

class temperature_chip_test : public device_test {
protected:
    temperature_chip_test() {
        line.set_script([this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, int&) {
            EXPECT_TRUE(size == 1 && out[0] == 0 && max == 2) << "the temperature register";
            in[0] = static_cast<std::uint8_t>(registers >> 8);
            in[1] = static_cast<std::uint8_t>(registers);
            return 2u;
        });
        chip.set_port_input(1u);
    }

    float average_after(unsigned degrees) {
        registers = degrees << 8;
        poll(chip);
        return stored("generic_temperature.avg_temperature");
    }

    thermal_host::block_line& line = host.ports.add_block(1u, {});
    unsigned registers = 0;
    common_thermal_device_generic_temperature chip{1};
};

TEST_F(temperature_chip_test, registers_decode_to_whole_degrees) {
    constexpr unsigned tmp75 = 1, lmp75 = 2, lm92 = 3, emc1001 = 4;
    const std::tuple<unsigned, unsigned, float> rows[] = {
        {tmp75, 0x1980, 25.0f},   {tmp75, 0xE700, -25.0f},  {tmp75, 0xE780, -24.0f}, {tmp75, 0xFF80, 0.0f},
        {tmp75, 0x8000, -128.0f}, {tmp75, 0x7FF0, 127.0f},  {lmp75, 0x19FF, 25.0f},  {lmp75, 0xE700, 231.0f},
        {lm92, 0x0C80, 25.0f},    {lm92, 0xF380, -25.0f},   {lm92, 0xFFC0, -1.0f},   {lm92, 0x007F, 0.0f},
        {lm92, 0x8000, -256.0f},  {emc1001, 0xFFFF, 255.0f}};
    for (const auto& [type, bits, degrees] : rows) {
        chip.set_port_type(type);
        registers = bits;
        EXPECT_EQ(reading(chip), degrees) << type << ": " << std::hex << bits;
    }
}

TEST_F(temperature_chip_test, without_a_chip_only_the_port_type_is_told) {
    common_thermal_device_generic_temperature unbound(2);
    EXPECT_EQ(reading(unbound), 255.0f);
    EXPECT_EQ(lines_with("isbound(0), read(0), temp(-999.000000)"), 1);
    EXPECT_EQ(lines_with("Unknown Port Type"), 0) << "nothing is asked without a port";
    chip.set_port_type(9);
    EXPECT_EQ(reading(chip), 255.0f);
    EXPECT_EQ(lines_with("Thermal Dev - Unknown Port Type : 0\n"), 1);
    chip.set_port_type(5);
    EXPECT_EQ(reading(chip), 255.0f);
    EXPECT_EQ(line.reads(), 0u);
}

TEST_F(temperature_chip_test, average_survives_invalid_readings) {
    chip.set_port_type(4);
    EXPECT_EQ(average_after(30), 0.0f) << "the first reading only seeds";
    EXPECT_EQ(average_after(40), 30.5f);
    line.fail_reads(1);
    EXPECT_EQ(average_after(90), 30.5f);
    EXPECT_EQ(lines_with("Thermal Dev emc1001  - Block Port Read Failed : Status 0\n"), 1);
    EXPECT_EQ(average_after(255), 30.5f) << "the highest byte counts as invalid";
    chip.set_avg_count(0);
    EXPECT_EQ(average_after(50), 50.0f) << "a count of 0 is 1";
    EXPECT_EQ(average_after(0), 0.0f);
    EXPECT_EQ(average_after(20), 0.0f) << "an average of 0 starts anew";
    EXPECT_EQ(average_after(21), 21.0f);
}

class ambient_test : public device_test {
protected:
    ambient_test() {
        fpga.set_port_input("fpga");
        ambient.set_port_input(2u);
        ambient.set_adi_offset(9);
    }

    float degrees(unsigned record) {
        records.bytes()[14] = static_cast<std::uint8_t>(record >> 8);
        records.bytes()[15] = static_cast<std::uint8_t>(record);
        poll(fpga);
        return reading(ambient);
    }

    thermal_host::block_line& capability = host.ports.add_block("fpga", std::vector<std::uint8_t>(16, 0x01));
    thermal_host::block_line& records = host.ports.add_block(2u, std::vector<std::uint8_t>(16));
    common_thermal_device_fpga_capabilities fpga{1};
    common_thermal_device_ambient ambient{1};
};

TEST_F(ambient_test, reads_only_what_the_fpga_holds) {
    common_thermal_device_fpga_capabilities blind(2);
    EXPECT_EQ(degrees(0x1900), 255.0f) << "no FPGA";
    EXPECT_TRUE(ambient.is_presence()) << "polled, whatever it read";
    link(ambient, {&fpga, &blind});
    for (const auto& [record, expected] : {std::pair{0x1910u, 25.0625f},
                                           {0x7FF0, 127.9375f},
                                           {0x0007, 0.0f},
                                           {0x0008, 255.0f},
                                           {0xFFF0, -0.0625f},
                                           {0x8000, -128.0f}}) {
        EXPECT_EQ(degrees(record), expected) << std::hex << record;
    }
    capability.bytes()[0] = 0xFE;
    EXPECT_EQ(degrees(0x1900), 255.0f);
    capability.bytes()[0] = 0x01;
    records.fail_reads(1);
    EXPECT_EQ(degrees(0x1900), 255.0f);
    capability.fail_reads(1);
    EXPECT_EQ(degrees(0x1900), 255.0f);
    for (const int outside : {10, 16, -1, -5}) {
        ambient.set_adi_offset(outside);
        EXPECT_EQ(degrees(0x1900), 255.0f) << outside;
    }
}

}  // namespace

#include <iomanip>
#include <random>
#include <sstream>

#include "device/event_status.hpp"
#include "device/fan/fan.hpp"
#include "device/pci/slot.hpp"
#include "device/pci/slot_pins.hpp"
#include "device/uefi.hpp"
#include "orchestration/common_thermal_manager.hpp"
#include "tests/device/device_fixture.hpp"

namespace {

using bytes = std::vector<std::uint8_t>;
using thermal_host::property_value;

constexpr std::uint8_t debug = 6;
constexpr std::uint8_t fan_speed = 7;
const std::string override_record = "/ac/nrv/therm_config/fan_ovr_tbl/";
const std::string adapters = "/ac/nrv/therm_config/pci_adapters/";
const std::string policy = "/ac/vekt2/therm_override/accelerate_policy";
const std::string slot_class = "common_thermal_device_pci_slot.";
const char* const ask = "FF FF FF FF FF FF FF FF";

std::string hex(const bytes& data) {
    std::ostringstream text;
    for (const unsigned byte : data) {
        text << (text.tellp() != 0 ? " " : "") << std::hex << std::uppercase << std::setfill('0') << std::setw(2)
             << byte;
    }
    return text.str();
}

bytes from_hex(const std::string& text) {
    std::istringstream words(text);
    bytes data;
    for (unsigned byte = 0; words >> std::hex >> byte;) data.push_back(static_cast<std::uint8_t>(byte));
    return data;
}

// One life of the controller: two fans, of which one has an output, and five slots, one of them elsewhere.
struct controller_life {
    explicit controller_life(thermal_host::platform& host) {
        common_thermal_manager::_scheduler = &scheduler;
        common_thermal_manager::_dao = &dao;
        fan.add_depend(&output);
        fan.set_value_pwm_output(40);
        for (auto* slot : {&slot3, &slot4, &slot12, &slot200}) {
            slot->set_num(1, static_cast<unsigned>(slot->get_instance()));
        }
        elsewhere.set_num(2, 5);
        presence.set_port_input(70u);
        slot3.add_depend(&presence), slot12.add_depend(&presence);
        for (common_thermal_device* device : std::initializer_list<common_thermal_device*>{
                 &stages, &fan, &bare_fan, &output, &uefi, &presence, &slot3, &elsewhere, &slot4, &slot12, &slot200}) {
            manager.add_thermal_device(device);
        }
        manager.add_thermal_device_done();
        manager.initialize(&host.loop.thermal());
    }
    ~controller_life() {
        common_thermal_manager::_scheduler = nullptr;
        common_thermal_manager::_dao = nullptr;
    }
    controller_life(const controller_life&) = delete;
    controller_life& operator=(const controller_life&) = delete;

    void finish_cycle() {
        do {
            manager.poll_thermal_device_and_algorithm();
        } while (scheduler.get_poll_counter() != 32);
    }

    common_thermal_dao dao;
    common_thermal_scheduler scheduler;
    common_thermal_device_fan fan{1}, bare_fan{2};
    common_thermal_device_fan_pwm_fpga output{1};
    common_thermal_device_event_status stages{1};
    common_thermal_device_uefi uefi{1};
    common_thermal_device_pci_slot_presence presence{1};
    common_thermal_device_pci_slot slot3{3}, elsewhere{5}, slot4{4}, slot12{12}, slot200{200};
    common_thermal_manager manager;
};

// Properties stay with the host, over several lives of the controller.
class commands_test : public device_test {
protected:
    commands_test() {
        host.log.captured().set_capacity(8192);
        restart();
    }
    void restart() {
        life.reset();
        life = std::make_unique<controller_life>(host);
    }

    thermal_host::ipmi_answer answer_to(std::uint8_t command, const bytes& request) {
        auto answer = host.ipmi.request({command, 0x3A, 0}, request);
        host.loop.run_pending();
        return answer.get();
    }
    // Completion code and data.
    std::string send(std::uint8_t command, const std::string& request) {
        const auto [code, data] = answer_to(command, from_hex(request));
        return hex({code}) + (data.empty() ? "" : " ") + hex(data);
    }

    std::string stored_property(const std::string& path) {
        const auto* property = host.properties.find(path);
        if (property == nullptr) return "-";
        const auto& block = property->value().block;
        return block.empty() ? std::to_string(property->get_dword()) : hex({block.begin() + 2, block.end()});
    }
    std::string tables() {
        std::string text;
        life->uefi.polling(&life->dao, 0);
        for (const char* table : {"1", "2", "3"}) {
            const std::string word = std::string("common_thermal_device_uefi.table") + table + "_enable";
            text += value_in(life->dao, word) != 0.0f ? "1" : "0";
        }
        return text;
    }
    // Speeds by hand, override tables, stored record.
    std::string state() {
        std::string text;
        for (const auto* fan : {&life->fan, &life->bare_fan}) {
            text += fan->is_manual_speed() ? std::to_string(fan->get_manual_speed()) + " " : "- ";
        }
        text += tables();
        for (const char* leaf : {"tbl_control", "zone", "speed", "vde"}) {
            text += " " + stored_property(override_record + leaf);
        }
        return text;
    }
    // A limit in the store, by slot.
    std::string limits(const std::string& word) {
        std::ostringstream text;
        for (const int slot : {3, 4, 5, 12}) text << value_in(life->dao, slot_class + word, slot) << " ";
        return text.str();
    }
    // "id:old>new " of each event since the last call.
    std::string raised() {
        std::string text;
        for (const auto& event : host.software_events.raised.entries()) {
            text += std::to_string(event.id);
            if (event.policies) text += ":" + std::string(event.policies->old_name) + ">" + event.policies->new_name;
            text += " ";
        }
        host.software_events.raised.clear();
        return text;
    }

    std::unique_ptr<controller_life> life;
};

TEST_F(commands_test, fan_speed_command_sets_by_hand_or_by_table_and_tells_duties_and_the_stored_record) {
    const struct {
        const char* request;
        const char* answer;
        const char* state;
    } steps[] = {
        {"", "00 28 00", "- - 000 - - - -"},
        {ask, "00 00 00 00 00 00", "- - 000 - - - -"},
        {"01", "C7", "- - 000 - - - -"},
        {"01 32", "C7", "- - 000 - - - -"},
        {"01 32 02 12 34 56 78 09 00", "C7", "- - 000 - - - -"},
        {"01 50 01", "00", "80 - 000 - - - -"},
        {"02 3C 01", "00", "80 60 000 - - - -"},
        {"07 11 01", "00", "80 60 000 - - - -"},
        {"00 11 01", "00", "- - 000 - - - -"},
        {"FF 64 01", "00", "100 100 000 - - - -"},
        {"05 28 02 12 34 AB CD 07", "00", "- - 100 2 5 40 12 34 AB CD 00 07"},
        {ask, "00 12 34 AB CD 02", "- - 100 2 5 40 12 34 AB CD 00 07"},
        {"06 29 03 FF FF FF FE FF", "00", "- - 110 3 6 41 FF FF FF FE 00 FF"},
        {"06 29 03 FF FF FF FF 0B", "00", "- - 110 3 6 41 FF FF FF FF 00 0B"},
        {ask, "00 FF FF FF FF 03", "- - 110 3 6 41 FF FF FF FF 00 0B"},
        {"01 32 04", "00", "- - 111 4 1 50 00 00 00 00 00 0B"},
        {"01 32 02 99", "00", "- - 100 2 1 50 00 00 00 00 00 0B"},
        {"01 32 03 12 34", "00", "- - 110 3 1 50 12 34 00 00 00 0B"},
        {"01 32 03 56 78 99", "00", "- - 110 3 1 50 56 78 00 00 00 0B"},
        {"FF FF 03 FF FF FF FF", "00", "- - 110 3 255 255 FF FF FF FF 00 0B"},
        {"01 32 05", "00", "- - 110 3 255 255 FF FF FF FF 00 0B"},
        {"01 46 01", "00", "70 - 000 3 255 255 FF FF FF FF 00 0B"},
        {"01 32 00", "00", "- - 000 0 - - -"},
        {ask, "00 00 00 00 00 00", "- - 000 0 - - -"},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(send(fan_speed, step.request), step.answer) << step.request;
        EXPECT_EQ(state(), step.state) << step.request;
    }
    EXPECT_EQ(lines_with("common_thermal_manager::set_fan_speed fan[2] without pwm dev.\n"), 1);
    EXPECT_EQ(lines_with("prop_rw_override_tbl, write control = 3\n"), 5);
    EXPECT_EQ(lines_with("prop_rw_override_tbl, write control = 2\n"), 1) << "not the one that made the property";
    EXPECT_EQ(lines_with("prop_rw_override_tbl , write vde = 1234 abcd"), 0);
    EXPECT_EQ(lines_with("prop_rw_override_tbl , write vde = 5678  0 0  0 b\n"), 1);
    EXPECT_EQ(lines_with("prop_rw_override_tbl show default control = 0[1].\n"), 2);
}

TEST_F(commands_test, a_table_survives_a_restart_a_speed_by_hand_does_not_and_a_reload_replays_nothing) {
    send(fan_speed, "01 32 03");
    restart();
    EXPECT_EQ(state(), "- - 110 3 1 50 00 00 00 00 00 0B");
    send(fan_speed, "FF 32 01");
    life->manager.load_fan_override_tbl();
    EXPECT_EQ(state(), "50 50 000 3 1 50 00 00 00 00 00 0B");
    restart();
    EXPECT_EQ(state(), "- - 110 3 1 50 00 00 00 00 00 0B") << "the table from before is back";
    send(fan_speed, "FF 32 00");
    restart();
    EXPECT_EQ(state(), "- - 000 0 - - -");
    EXPECT_EQ(lines_with("load_fan_override_tbl no control value received (rc 6, control 0)\n"), 1);
}

TEST_F(commands_test, only_a_whole_record_of_a_table_is_replayed) {
    const auto number = [](unsigned width, std::uint32_t value) { return property_value::number_of(width, value); };
    const auto block = [](unsigned size) {
        const bytes content(size, 9);
        return *property_value::block_of(content.data(), size);
    };
    using fields = std::map<const char*, property_value>;
    const fields whole{
        {"tbl_control", number(1, 3)}, {"zone", number(1, 1)}, {"speed", number(1, 50)}, {"vde", block(6)}};
    const struct {
        fields changed;
        std::vector<const char*> missing;
        const char* tables;
        const char* result;
    } rows[] = {
        {{}, {}, "110", ""},
        {{}, {"zone"}, "000", "(rc 2, control 3)"},
        {{}, {"speed", "vde"}, "000", "(rc 6, control 3)"},
        {{}, {"tbl_control"}, "000", "(rc 1, control 0)"},
        {{}, {"tbl_control", "zone", "speed", "vde"}, "000", "(rc 7, control 0)"},
        {{{"vde", block(5)}}, {}, "000", "(rc 4, control 3)"},
        {{{"vde", block(7)}}, {}, "000", "(rc 4, control 3)"},
        {{{"vde", number(4, 6)}}, {}, "000", "(rc 4, control 3)"},
        {{{"tbl_control", number(2, 0x304)}, {"zone", block(255)}}, {}, "111", ""},
        {{{"tbl_control", block(1)}}, {}, "000", "(rc 0, control 0)"},
        {{{"tbl_control", number(1, 1)}}, {}, "000", "(rc 0, control 1)"},
        {{{"tbl_control", number(1, 5)}}, {}, "000", "(rc 0, control 5)"},
    };
    for (const auto& row : rows) {
        fields record = row.changed;
        record.insert(whole.begin(), whole.end());
        for (const char* leaf : row.missing) record.erase(leaf);
        for (const auto& [leaf, value] : whole) DM::del_property(override_record + leaf);
        for (const auto& [leaf, value] : record) host.properties.create(override_record + leaf, value);
        host.log.captured().clear();
        restart();
        EXPECT_EQ(tables(), row.tables) << row.result;
        EXPECT_EQ(lines_with("no control value received"), *row.result != '\0' ? 1 : 0) << row.result;
        EXPECT_EQ(lines_with(row.result) != 0, true) << row.result;
        EXPECT_EQ(send(fan_speed, "01 32 02 12 34"), "00");
    }
}

TEST_F(commands_test, each_kept_control_is_told_as_a_policy_by_name) {
    send(fan_speed, "01 32 01"), send(fan_speed, "01 32 05"), send(fan_speed, ask);
    EXPECT_EQ(raised() + stored_property(policy), "-");
    for (const char* request : {"01 32 02", "01 32 03", "01 32 04", "01 32 04", "01 32 00"}) send(fan_speed, request);
    EXPECT_EQ(raised(),
              "254:Normal Speed>Low Increase 254:Low Increase>Medium Increase 254:Medium Increase>High Increase "
              "254:High Increase>High Increase 254:High Increase>Normal Speed ");
    host.properties.find(policy)->set(std::uint8_t{9}, 0, 0);
    host.software_events.result = 1;
    send(fan_speed, "01 32 02");
    EXPECT_EQ(raised() + stored_property(policy), "254:>Low Increase 2");
    EXPECT_EQ(take_lines(0), text_lines{"Generate SW_MSGID_FAN_SPEED_SETTING_CHANGED event fail"});
}

TEST_F(commands_test, user_limits_reach_the_slots_of_location_1_and_come_back_after_a_restart) {
    EXPECT_EQ(stored_property(adapters + "03/TGP_user") + stored_property(adapters + "200/EDPp_user"), "00");
    EXPECT_EQ(limits("tgp_user"), "0 0 nan 0 ");
    const struct {
        const char* request;
        const char* answer;
    } steps[] = {
        {"C0 03", "00 00 00"},    {"C0 03 01 2C", "00"}, {"C0 03", "00 01 2C"}, {"C0 05 01 2C", "00"},
        {"C0 05", "00"},          {"C0 FF", "00"},       {"C0", "CA"},          {"C0 03 01", "CA"},
        {"C0 03 01 2C 00", "CA"}, {"C1 0C", "00 00"},    {"C1 0C 55", "00"},    {"C1 0C", "00 55"},
        {"C1 09 11", "00"},       {"C1 09", "00"},       {"C1", "CA"},          {"C1 0C 01 02", "CA"},
    };
    for (const auto& step : steps) EXPECT_EQ(send(debug, step.request), step.answer) << step.request;
    EXPECT_EQ(limits("tgp_user"), "300 0 nan 0 ");
    restart();
    EXPECT_EQ(limits("tgp_user"), "300 0 nan 0 ");
    EXPECT_EQ(life->slot12.get_edpp_percentage(), 0x55);
    send(debug, "C0 FF FF FE"), send(debug, "C1 FF 3C");
    EXPECT_EQ(limits("tgp_user"), "65534 65534 nan 65534 ");
    EXPECT_EQ(send(debug, "C0 C8") + send(debug, "C1 C8") + send(debug, "C1 05"), "00 FF FE00 3C00");
    EXPECT_EQ(life->elsewhere.get_edpp_percentage(), 0);
    EXPECT_EQ(stored_property(adapters + "12/TGP_user") + " " + stored_property(adapters + "04/EDPp_user"), "65534 60");
    life->dao.update_dev(slot_class + "tgp_user", 3, 1e9f, false);
    EXPECT_EQ(send(debug, "C0 03"), "00 CA 00") << "the low 16 bits";
}

TEST_F(commands_test, a_limit_above_the_machines_own_data_is_told_once_until_all_are_within_again) {
    const auto import = [this](unsigned type, unsigned watts) {
        return life->manager.import_config(static_cast<common_thermal_manager::config_type>(type), watts);
    };
    EXPECT_EQ(import(2, 0) + import(0, 200) + import(3, 200), 0);
    EXPECT_EQ(limits("tgp_platform") + limits("tgp_vpd"), "nan nan nan nan nan nan nan nan ");
    life->dao.update_dev(slot_class + "tgp_vpd", 5, 100, false);
    life->dao.update_dev(slot_class + "tgp_user", 5, 200, false);
    send(debug, "C0 03 01 2C");
    EXPECT_EQ(raised(), "") << "nobody told the machine's own limit";
    EXPECT_EQ(import(1, 500) + import(2, 65535), 2);
    EXPECT_EQ(limits("tgp_platform") + limits("tgp_vpd"), "500 500 nan 500 65535 65535 100 65535 ");
    send(debug, "C0 FF FF FF");
    EXPECT_EQ(raised(), "") << "65535 is no limit";
    import(2, 250);
    const struct {
        const char* request;
        const char* events;
    } steps[] = {
        {"C0 09 00 00", "328 "}, {"C0 FF 01 2C", ""}, {"C0 03 00 FA", ""},
        {"C0 FF 00 FA", "329 "}, {"C0 03 00 00", ""}, {"C0 0C 00 FB", "328 "},
    };
    for (const auto& step : steps) {
        send(debug, step.request);
        EXPECT_EQ(raised(), step.events) << step.request;
    }
    restart();
    import(2, 250);
    host.software_events.result = 7;
    send(debug, "C0 04 00 10"), send(debug, "C0 0C 00 10"), send(debug, "C0 0C 00 10");
    EXPECT_EQ(raised(), "328 329 ");
    EXPECT_EQ(take_lines(0), (text_lines{"TGP exceeded preconfig value!\n", "TGP within preconfig value!\n"}));
}

TEST_F(commands_test, most_power_is_published_once_the_data_path_was_up_for_three_cycles) {
    host.ports.add_number(70, 1);
    life->dao.update_dev("4PMW." + slot_class + "max_power", 12, 75.9f, false);
    const auto cycles = [this](std::initializer_list<bool> up) {
        for (const bool is_up : up) {
            life->manager.set_stage(common_thermal_utils::dp_ready, is_up);
            life->finish_cycle();
        }
        return stored_property(adapters + "count");
    };
    take_lines(~0u);
    EXPECT_EQ(cycles({false, false, true, true, false, true, true}), "-");
    EXPECT_EQ(cycles({true, true}), "4");
    const std::string line = "common_thermal_manager:: update_ipmiprop_pci_maxwatt[";
    EXPECT_EQ(lines_with(line + "00][00].\n") * 100 + lines_with(line + "00][02].\n") * 10 + lines_with(line + "01]"),
              321)
        << "and nothing more once they are published";
    DM::del_property(adapters + "count");
    EXPECT_EQ(cycles({true, true}), "-");
    EXPECT_EQ(cycles({false, true, true, true}), "4") << "again after each boot";
    EXPECT_EQ(stored_property(adapters + "max_count_bitmap"), std::to_string(0b11101)) << "position 1 is elsewhere";
    EXPECT_EQ(stored_property(adapters + "act_count_bitmap"), std::to_string(0b01000));
    EXPECT_EQ(stored_property(adapters + "12/MaxWatt") + " " + stored_property(adapters + "03/MaxWatt"), "75 0");
    EXPECT_EQ(stored_property(adapters + "05/MaxWatt"), "-");
}

TEST_F(commands_test, any_request_gets_its_completion_code_and_the_next_good_one_works) {
    const auto code_of = [](std::uint8_t command, const bytes& request) {
        const std::size_t length = request.size();
        if (command == fan_speed) return length == 0 || (length >= 3 && length <= 8) ? 0 : 199;
        if (length == 0) return 204;
        const bool is_limit = request[0] == 192 || request[0] == 193;
        return !is_limit || length == 2 || length == (request[0] == 192 ? 4u : 3u) ? 0 : 202;
    };
    std::mt19937 random(1);
    const auto flood = [&] {
        for (std::size_t length = 0; length <= 64; ++length) {
            for (unsigned first = 0; first < 256; ++first) {
                bytes request(length);
                for (std::uint8_t& byte : request) byte = static_cast<std::uint8_t>(random());
                for (const std::uint8_t command : {debug, fan_speed}) {
                    if (length != 0) request[0] = static_cast<std::uint8_t>(first);
                    EXPECT_EQ(answer_to(command, request).completion_code, code_of(command, request)) << hex(request);
                }
            }
        }
    };
    for (const char* leaf : {"03/TGP_user", "04/TGP_user", "12/EDPp_user"}) {
        DM::del_property(adapters + leaf);
        host.properties.create(adapters + leaf, property_value::block_of(from_hex("01 02").data(), 2));
    }
    host.log.set_mask(0);
    flood();
    life->finish_cycle();
    EXPECT_EQ(send(fan_speed, "01 32 01") + send(fan_speed, ""), "0000 28 00");
    send(debug, "C0 03 00 64");
    EXPECT_EQ(send(debug, "C0 03"), "00 00 64") << "also with a property that cannot keep it";
    restart();
    EXPECT_EQ(send(debug, "C0 03"), "00 00 00");
    common_thermal_manager::_dao = nullptr;
    for (const char* request : {"C0 03", "C0 FF 00 64", "C1 03 10"}) EXPECT_EQ(send(debug, request), "00");
    EXPECT_EQ(send(debug, "C1 03"), "00 10");
    common_thermal_manager::_scheduler = nullptr;
    flood();
    EXPECT_EQ(send(fan_speed, ""), "00");
    EXPECT_EQ(life->manager.load_ipmiprop_pci_tgp_user() + life->manager.load_ipmiprop_pci_edpp_user() +
                  life->manager.import_config(common_thermal_manager::config_tgp_vpd, 1),
              0);
}

}  // namespace

#include <optional>

#include "tests/support/host_fixture.hpp"

namespace {

class store_test : public host_fixture {
protected:
    text_lines dumped() const {
        text_lines names;
        for (const auto& [key, value] : dao.values()) names.push_back(key);
        return names;
    }
};

TEST_F(store_test, plain_write_makes_the_key_and_logs_changes_only) {
    const std::tuple<float, bool, text_lines> steps[] = {
        {0.0f, true, {}},   {40.25f, true, {"OBV - DAO[zone.max.-1] = 0.00 -> 40.25\n"}}, {40.25f, true, {}},
        {-3.0f, false, {}}, {7.0f, true, {"OBV - DAO[zone.max.-1] = -3.00 -> 7.00\n"}},
    };
    float value = 5.0f;
    EXPECT_FALSE(dao.fetch_dev("zone.max", -1, &value) || value != 5.0f);
    EXPECT_EQ(dumped(), text_lines{}) << "asking makes no key";
    for (const auto& [written, log, lines] : steps) {
        dao.update_dev("zone.max", -1, written, log);
        EXPECT_EQ(value_of("zone.max", -1), written);
        EXPECT_EQ(take_lines(0x20000000), lines);
    }
}

TEST_F(store_test, dump_is_in_byte_order_of_the_whole_key) {
    const std::string longest(300, 'z');
    for (const char* name : {"b", "\xC3", "a.1", "A", "a", longest.c_str()}) dao.update_dev(name, 1, 1.0f, false);
    for (const int instance : {10, 2, -1}) dao.update_dev("a", instance, 1.0f, false);
    EXPECT_EQ(dumped(), (text_lines{"A.1", "a.-1", "a.1", "a.1.1", "a.10", "a.2", "b.1", longest + ".1", "\xC3.1"}));
}

TEST_F(store_test, remembered_place_finds_a_key_made_later_and_keeps_to_the_store_asked) {
    std::optional<common_thermal_dao> other(std::in_place);
    store_reference reference("x", 1);
    store_place written;
    EXPECT_EQ(reference.find(dao), nullptr);
    dao.update_dev("x", 1, 3.0f, false);
    for (int i = 0; i < 1000; ++i) dao.update_dev("filler", i, 1.0f, false);
    EXPECT_EQ(*reference.find(dao), 3.0f);
    store_reference copy = reference;
    EXPECT_EQ(reference.find(*other), nullptr);
    other->store_dev("x", 1, written, 4.0f);
    EXPECT_EQ(*reference.find(*other), 4.0f);
    other.emplace();  // at the same address
    EXPECT_EQ(reference.find(*other), nullptr);
    other->store_dev("x", 1, written, 5.0f);
    dao.store_dev("x", 1, written, 6.0f);
    EXPECT_EQ(value_in(*other, "x"), 5.0f);
    EXPECT_EQ(*copy.find(dao), 6.0f);
}

TEST_F(store_test, record_is_filtered_by_the_store_it_is_written_to_and_so_is_its_copy) {
    constexpr auto high = common_thermal_dao::spike_going_high;
    common_thermal_dao other;
    common_thermal_dao::dev_data_t data("t", 1, 50.0f);
    dao.update_dev(&data, high, false);
    for (int i = 0; i < 3; ++i) dao.update_dev("filler", i, 1.0f, false);  // as many keys as the other store will have
    other.update_dev("1SMC.t", 1, 3.0f, false);
    other.update_dev("1SC.t", 1, 90.0f, false);
    dao.update_dev(&data, high, false);
    common_thermal_dao::dev_data_t copy = data;
    for (const float held : {0.0f, 0.0f, 95.0f}) {
        data.value = copy.value = 95.0f;
        other.update_dev(&data, high, false);
        dao.update_dev(&copy, high, false);
        EXPECT_TRUE(data.value == held && value_in(other, "t") == held && value_of("t") == 95.0f);
    }
    data.value = 96.0f;
    dao.update_dev(&data, high, false);
    EXPECT_EQ(value_of("t"), 96.0f);
}

TEST_F(store_test, sensor_key_is_mapped_to_the_last_value_given) {
    common_thermal_utils::dao_t found{"unchanged", 5};
    EXPECT_FALSE(dao.fetch_ipmi_sdr_key_dao("sensor", &found) || found.name != "unchanged");
    for (const char* name : {"first", "second"}) dao.update_ipmi_sdr_key_dao("sensor", name, -2);
    EXPECT_TRUE(dao.fetch_ipmi_sdr_key_dao("sensor", &found) && found.name == "second" && found.instance == -2);
}

TEST_F(store_test, first_positive_number_of_fans_stands_and_is_cut_to_63) {
    common_thermal_dao large;
    dao.reserve_fan_alg(0);
    EXPECT_EQ(dao.convert_fan_inst_to_index(5), 0u);
    for (const unsigned fans : {4u, 70u}) dao.reserve_fan_alg(fans);
    EXPECT_TRUE(dao.convert_fan_inst_to_index(4) == 0 && dao.convert_fan_inst_to_index(7) == 3);
    EXPECT_EQ(take_lines(0), text_lines{});
    large.reserve_fan_alg(70);
    EXPECT_TRUE(large.convert_fan_inst_to_index(62) == 62 && large.convert_fan_inst_to_index(64) == 1);
    EXPECT_EQ(take_lines(0), (text_lines{"Fan device number exceeded!!!\n", "Fan device number Cur/Max - 70/63\n"}));
}

}  // namespace

#include "device/uefi.hpp"
#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

using stage_mask = unsigned;
constexpr stage_mask ipmi = 1, post = 2, completed = 4, power = 8, path = 16, feh = 32, all = 63;
constexpr stage_mask boot = post | completed | path;

class event_test : public manager_test {
protected:
    void set(stage_mask mask) {
        for (unsigned stage = 0; stage < 6; ++stage) {
            manager.set_stage(static_cast<utils::status_stage_t>(stage), (mask >> stage & 1) != 0);
        }
    }
    static stage_mask stages(const common_thermal_device_event_status& status) {
        stage_mask mask = 0;
        for (unsigned stage = 0; stage < 6; ++stage) {
            mask |= status.get_stage(static_cast<utils::status_stage_t>(stage)) ? 1u << stage : 0u;
        }
        return mask;
    }

    common_thermal_device_event_status first{1}, second{2};
};

TEST_F(event_test, each_signal_moves_its_stages_and_no_other) {
    // Signal, word and byte of it, the stages that it reaches and those that it ends.
    const std::tuple<int, int, int, stage_mask, stage_mask> rows[] = {
        {128, 0, 0, power, boot},    {129, 0, 0, 0, power + boot},
        {132, 0, 0, 0, boot},        {134, 0, 0, post, boot - post},
        {135, 0, 0, boot - path, 0}, {225, 0, 0, ipmi, 0},
        {230, 0, 0, 0, feh},         {239, 0, 0, feh, 0},
        {304, 0, 11, boot, 0},       {304, 1, 11, 0, 0},
        {304, 256, 11, 0, 0},        {304, 0, 10, 0, 0},
        {304, 11, 0, 0, 0},          {87, 0, 11, 0, 0},
        {149, 0, 11, 0, 0}};
    start({&first, &second});
    for (const auto& [signal, word, byte0, reached, ended] : rows) {
        for (const stage_mask before : {stage_mask{0}, all}) {
            set(before);
            publish(signal, word, byte0);
            const stage_mask after = (before | reached) & ~ended;
            EXPECT_EQ(stages(first), after) << signal << ' ' << word << ' ' << byte0 << " from " << before;
            EXPECT_EQ(stages(second), after);
        }
    }
}

TEST_F(event_test, an_unknown_signal_is_logged_and_ignored) {
    start({&first});
    set(post | feh);
    publish(303, 0, 11, true);
    EXPECT_EQ(stages(first), post | feh);
    EXPECT_EQ(lines_with("common_thermal_manager_sm::running - 303\n"), 1);
}

TEST_F(event_test, a_stage_is_reached_when_every_status_device_has_it) {
    EXPECT_TRUE(manager.get_stage(utils::dp_ready)) << "no such device";
    start({&first, &second});
    for (const int devices : {0, 1, 2, 3}) {
        first.set_stage(utils::dp_ready, (devices & 1) != 0);
        second.set_stage(utils::dp_ready, (devices & 2) != 0);
        EXPECT_EQ(manager.get_stage(utils::dp_ready), devices == 3) << devices;
    }
    EXPECT_FALSE(manager.get_stage(utils::power_good));
}

TEST_F(event_test, the_performance_mode_reaches_every_uefi_device_by_its_own_signal_number) {
    common_thermal_device_uefi one(1), two(2);
    start({&one, &two});
    const int number = host.machines.number_of("UEFI_PERF_SIG");
    const int other = host.machines.number_of("CFF2_FAN_SPEED_CTRL_SIG");
    const std::tuple<int, int, float> rows[] = {
        {number, 3, 3.0f}, {other, 5, 3.0f}, {number + 256, 5, 3.0f}, {number, 0, 0.0f}};
    for (const auto& [word, mode, shown] : rows) {
        publish(87, word, mode);
        for (common_thermal_device_uefi* uefi : {&one, &two}) {
            poll(*uefi);
            EXPECT_EQ(stored("uefi.op_mode", uefi->get_instance()), shown) << word;
        }
    }
}

}  // namespace

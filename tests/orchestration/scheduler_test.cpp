#include <algorithm>
#include <array>
#include <numeric>

#include "tests/orchestration/orchestration_fixture.hpp"

namespace {

using slots = std::vector<unsigned>;
using ring = std::array<slots, 32>;

class scheduler_test : public device_test {
protected:
    void add_devices(std::initializer_list<unsigned> kinds) {
        for (const unsigned kind : kinds) {
            devices.push_back(std::make_unique<counting_device>(kind));
            scheduler.add_thermal_device(devices.back().get());
        }
    }
    // Places them at once.
    void set_rules(std::size_t count) {
        scheduler.free_all_thermal_algorithm_list();
        for (std::size_t i = 0; i < count; ++i) scheduler.add_thermal_algorithm(0, nullptr);
        build(scheduler);
    }
    static void build(common_thermal_scheduler& plan) {
        plan.add_thermal_device_done();
        plan.add_thermal_algorithm_done();
        plan.reschedule_talg();
        plan.run(nullptr);
    }
    static ring run_cycle(common_thermal_scheduler& plan) {
        ring lists;
        for (slots& list : lists) {
            plan.run(nullptr);
            const std::uint32_t* first = plan.get_current_scheduler_list();
            list.assign(first, first + plan.get_current_scheduler_list_size());
        }
        return lists;
    }
    static slots slots_of(const ring& lists, unsigned index) {
        slots found;
        for (unsigned slot = 0; slot < 16; ++slot) {
            found.insert(found.end(), static_cast<std::size_t>(std::ranges::count(lists[slot], index)), slot);
        }
        return found;
    }

    std::vector<std::unique_ptr<counting_device>> devices;
    common_thermal_scheduler scheduler;
};

TEST_F(scheduler_test, every_kind_lands_in_the_slots_of_its_table) {
    const slots request_kinds{4113, 4114, 4115, 4116, 4117, 4118, 4145, 4146, 4177, 4178, 4179, 4209, 4210, 4241};
    slots kinds{4094, 4129, 4161, 4162, 4192, 4225};
    kinds.insert(kinds.end(), request_kinds.begin(), request_kinds.end());
    for (unsigned i = 0; i < 68; ++i) kinds.push_back(3 + i);
    for (unsigned i = 0; i < 17; ++i) kinds.push_back(8193 + i);
    for (const unsigned kind : kinds) {
        common_thermal_scheduler plan;
        counting_device device(kind);
        plan.add_thermal_device(&device);
        build(plan);
        const slots expected = std::ranges::count(request_kinds, kind) != 0 ? slots{2, 4, 8, 10, 15}
                               : kind >= 8193                               ? slots{0}
                               : kind == 16                                 ? slots{2}
                               : kind == 20                                 ? slots{14}
                                                                            : slots{15};
        ASSERT_EQ(slots_of(run_cycle(plan), 0), expected) << "kind " << kind;
    }
}

TEST_F(scheduler_test, kinds_share_the_tables_and_requests_run_last_with_the_capabilities_ahead) {
    add_devices({4114, 8193, 7, 16, 8, 8209, 20, 4113, 9, 16, 8194, 7, 20, 4129, 4241, 4113});
    add_devices({3, 3, 3, 3, 3, 3, 3, 3, 3});  // the last is the fourteenth of the general table
    set_rules(0);
    std::string text;
    for (const slots& list : run_cycle(scheduler)) {
        for (const unsigned index : list) text += std::to_string(index) + " ";
        text += "|";
    }
    EXPECT_EQ(text,
              "1 10 |5 |3 24 7 15 0 14 |23 |9 22 7 15 0 14 |21 |20 |19 |18 7 15 0 14 |17 |16 7 15 0 14 |13 |11 12 |8 |"
              "4 6 |2 7 15 0 14 |" +
                  std::string(16, '|'));
}

TEST_F(scheduler_test, rules_are_dealt_in_order_and_in_even_chunks) {
    const std::pair<std::size_t, unsigned> rows[] = {{0, 0}, {1, 1}, {16, 1}, {17, 2}, {33, 3}, {12000, 750}, {5, 1}};
    add_devices({7});
    for (const auto& [rules, chunk] : rows) {
        set_rules(rules);
        const ring lists = run_cycle(scheduler);
        unsigned next = 0;
        for (unsigned slot = 16; slot < 32; ++slot) {
            slots expected(std::min<std::size_t>(chunk, rules - next));
            std::iota(expected.begin(), expected.end(), next);
            next += static_cast<unsigned>(expected.size());
            EXPECT_EQ(lists[slot], expected) << rules << " rules, slot " << slot;
        }
        EXPECT_EQ(slots_of(lists, 0), slots{15}) << "the devices stay where they are";
        add_devices({7});
        EXPECT_EQ(slots_of(lists, 1), slots{}) << "too late to be polled";
    }
}

TEST_F(scheduler_test, what_a_slot_cannot_hold_is_dropped_until_the_next_build) {
    for (int i = 0; i < 1502; ++i) {
        add_devices({8193});
    }
    set_rules(12001);
    const ring lists = run_cycle(scheduler);
    EXPECT_EQ(lists[0].size() + lists[1].size(), 1500u);
    EXPECT_EQ(lists[1].back(), 1499u);
    EXPECT_EQ(lists[16].back(), 749u);
    EXPECT_EQ(lists[17].front(), 751u) << "rule 750 is never polled";
    EXPECT_EQ(scheduler.add_index_to_schedule(16, 1) + scheduler.add_index_to_schedule(32, 1), 0);
    set_rules(1);
    EXPECT_EQ(scheduler.add_index_to_schedule(16, 1), 1) << "not full any more";
}

TEST_F(scheduler_test, a_rebuild_polls_nothing_and_keeps_counter_and_idle_time) {
    add_devices({7});
    const std::pair<unsigned, unsigned> idle_at[] = {{0, 100}, {3, 90}, {10, 30}, {17, 10}, {32, 10}};
    for (const auto& [counter, idle] : idle_at) {
        while (scheduler.get_poll_counter() != counter) {
            scheduler.run(&dao);
            EXPECT_EQ(scheduler.last_schedule(), scheduler.get_poll_counter() == 32);
        }
        set_rules(2);
        EXPECT_FALSE(scheduler.is_running_tdev_list() || scheduler.is_running_algorithm_list());
        EXPECT_FALSE(scheduler.last_schedule());
        EXPECT_EQ(scheduler.get_poll_counter(), counter);
        EXPECT_EQ(scheduler.get_idle_time(), idle);
    }
    scheduler.run(&dao);
    EXPECT_EQ(scheduler.get_poll_counter(), 1u) << "behind slot 31 comes slot 0";
    EXPECT_TRUE(scheduler.is_running_tdev_list());
}

TEST_F(scheduler_test, does_not_run_until_devices_and_rules_are_marked_done) {
    for (const char* missing : {"device NOT done \n", "algorithm NOT done\n"}) {
        scheduler.run(&dao);
        EXPECT_EQ(lines_with(std::string("common_thermal_scheduler: run - add thermal ") + missing), 1) << missing;
        EXPECT_FALSE(scheduler.is_running_tdev_list() || scheduler.is_running_algorithm_list());
        EXPECT_EQ(scheduler.get_idle_time() + scheduler.get_poll_counter(), 100u);
        scheduler.add_thermal_device_done();
    }
}

}  // namespace

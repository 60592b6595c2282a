#include "orchestration/common_thermal_scheduler.hpp"

#include <span>

#include "foundation/log_masks.hpp"

namespace {

using utils = common_thermal_utils;

constexpr std::size_t initial_entries = 12000;
constexpr std::uint32_t not_ready_idle_time = 100;

constexpr std::uint32_t idle_times[] = {
    10, 10, 90, 30, 30, 30, 30, 30, 90, 30, 25, 25, 25, 25, 25, 10,  // devices
    10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10,  // rules
};

constexpr unsigned general_slots[] = {15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2};
constexpr unsigned event_slots[] = {0, 1};
constexpr unsigned cpu_temperature_slots[] = {2, 4, 6, 8};
constexpr unsigned dimm_channel_slots[] = {14, 12, 10, 8, 6, 4, 2};
constexpr unsigned pci_request_slots[] = {2, 4, 8, 10, 15};
constexpr unsigned algorithm_slots[] = {16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};

// By table_t.
constexpr std::span<const unsigned> placement_tables[] = {general_slots,      event_slots,       cpu_temperature_slots,
                                                          dimm_channel_slots, pci_request_slots, algorithm_slots};

constexpr bool is_event_kind(std::uint32_t type) { return (type & 0x2000u) != 0; }
constexpr bool is_pci_request(std::uint32_t type) { return (type & 0x1000u) != 0 && (type & 0x10u) != 0; }

constexpr utils::tdev_type_t listed_kinds[] = {utils::tdev_event_status, utils::tdev_fan, utils::tdev_uefi,
                                               utils::tdev_pci_slot, utils::tdev_cpu_channel};

}  // namespace

common_thermal_scheduler::common_thermal_scheduler() : _algorithms(initial_entries, nullptr) {
    for (const utils::tdev_type_t kind : listed_kinds) {
        _tdev_index[kind];
    }
    for (unsigned i = 0; i < slot_count; ++i) {
        _slots[i].is_tdev = i < first_algorithm_slot;
        _slots[i].is_talg = !_slots[i].is_tdev;
        _slots[i].idle_time = idle_times[i];
    }
}

void common_thermal_scheduler::add_thermal_device(common_thermal_device* device) {
    if (device == nullptr) {
        return;
    }
    const auto listed = _tdev_index.find(device->get_tdev_type());
    if (listed != _tdev_index.end()) {
        listed->second.push_back(_devices.size());
    }
    _devices.push_back(device);
}

void common_thermal_scheduler::add_thermal_algorithm(unsigned, common_thermal_algorithm* added) {
    _algorithms.push_back(added);
}

const common_thermal_scheduler::index_list& common_thermal_scheduler::indices_of(tdev_type_t kind) const {
    return _tdev_index.at(kind);
}

unsigned common_thermal_scheduler::found_schedule_pos(unsigned table) const {
    return table < std::size(placement_tables) ? placement_tables[table][_table_position[table]] : 0;
}

void common_thermal_scheduler::next_schedule_pos(unsigned table) {
    if (table >= std::size(placement_tables)) {
        return;
    }
    _table_position[table] = (_table_position[table] + 1) % static_cast<unsigned>(placement_tables[table].size());
}

int common_thermal_scheduler::add_index_to_schedule(unsigned slot_number, unsigned long index) {
    if (slot_number >= slot_count || _slots[slot_number].full) {
        return 0;
    }
    slot& target = _slots[slot_number];
    target.index[target.count++] = static_cast<std::uint32_t>(index);
    target.full = target.count == slot_capacity;
    return 1;
}

void common_thermal_scheduler::clear_slots(unsigned first, unsigned end) {
    for (unsigned i = first; i < end; ++i) {
        _slots[i].count = 0;
        _slots[i].full = false;
    }
}

void common_thermal_scheduler::place(table_t table, unsigned long index) {
    add_index_to_schedule(found_schedule_pos(table), index);
    next_schedule_pos(table);
}

void common_thermal_scheduler::place_devices() {
    _table_position = {};
    clear_slots(0, first_algorithm_slot);
    index_list capability_requests;
    index_list other_requests;
    for (unsigned long index = 0; index < _devices.size(); ++index) {
        const std::uint32_t type = _devices[index]->get_tdev_type();
        if (is_event_kind(type)) {
            place(event, index);
        } else if (is_pci_request(type)) {
            (type == utils::tdev_pci_request_nvidia_capability ? capability_requests : other_requests).push_back(index);
        } else if (type == utils::tdev_cpu_temperature) {
            place(cpu_temperature, index);
        } else if (type == utils::tdev_dimm_channel) {
            place(dimm_channel, index);
        } else {
            place(general, index);
        }
    }
    for (const unsigned slot_number : pci_request_slots) {
        for (const index_list* requests : {&capability_requests, &other_requests}) {
            for (const unsigned long index : *requests) {
                add_index_to_schedule(slot_number, index);
            }
        }
    }
    _tdev_scheduled = true;
}

void common_thermal_scheduler::place_algorithms() {
    _table_position[algorithm] = 0;
    clear_slots(first_algorithm_slot, slot_count);
    constexpr std::size_t algorithm_slot_count = std::size(algorithm_slots);
    const std::size_t chunk = (_algorithms.size() + algorithm_slot_count - 1) / algorithm_slot_count;
    for (std::size_t index = 0; index < _algorithms.size(); ++index) {
        add_index_to_schedule(found_schedule_pos(algorithm), index);
        if ((index + 1) % chunk == 0) {
            next_schedule_pos(algorithm);
        }
    }
    _talg_scheduled = true;
}

bool common_thermal_scheduler::schedule_begin(common_thermal_dao* dao) {
    if (_tdev_scheduled && _talg_scheduled) {
        return false;
    }
    if (!_tdev_scheduled) {
        place_devices();
    }
    if (!_talg_scheduled) {
        place_algorithms();
    }
    if (dao != nullptr) {
        record_schedule(*dao);
    }
    return true;
}

// The present plan, for a diagnostic file.
void common_thermal_scheduler::record_schedule(common_thermal_dao& dao) const {
    dao.clear_debug_texts(utils::log_schedule);
    for (unsigned number = 0; number < slot_count; ++number) {
        const slot& each = _slots[number];
        for (unsigned k = 0; k < each.count; ++k) {
            const std::uint32_t index = each.index[k];
            if (number < first_algorithm_slot) {
                const common_thermal_device& device = *_devices[index];
                dao.update_debug_scheduler(number, k, index, device.get_name(), device.get_instance());
            } else if (const common_thermal_algorithm* rule = _algorithms[index]) {
                dao.update_debug_scheduler(number, k, index, rule->get_name(), rule->get_instance());
            }
        }
    }
}

void common_thermal_scheduler::schedule_end(common_thermal_dao*, unsigned) {}

void common_thermal_scheduler::run(common_thermal_dao* dao) {
    _running_algorithm_list = false;
    _last_schedule = false;
    _running_tdev_list = false;
    if (!_tdev_done) {
        LOG::warn(log_source, log_mask::polled, "common_thermal_scheduler: run - add thermal device NOT done \n");
        _idle_time = not_ready_idle_time;
        return;
    }
    if (!_talg_done) {
        LOG::warn(log_source, log_mask::polled, "common_thermal_scheduler: run - add thermal algorithm NOT done\n");
        _idle_time = not_ready_idle_time;
        return;
    }
    if (schedule_begin(dao)) {
        schedule_end(dao, _poll_counter);
        return;
    }
    _poll_counter %= slot_count;
    const slot& selected = _slots[_poll_counter];
    _running_tdev_list = selected.is_tdev;
    _running_algorithm_list = selected.is_talg;
    _idle_time = selected.idle_time;
    _current_size = selected.count;
    _current_list = selected.index.data();
    schedule_end(dao, _poll_counter);
    ++_poll_counter;
    _last_schedule = _poll_counter >= slot_count;
}

#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <vector>

#include "algorithm/algorithm_list.hpp"
#include "algorithm/common_thermal_algorithm.hpp"
#include "device/common_thermal_device.hpp"
#include "foundation/export.hpp"

// The plan of one control cycle: a ring of 32 slots. Slots 0 to 15 hold devices, placed once by their kind; slots 16 to
// 31 hold rules, dealt evenly and dealt again after a reload. It picks what a tick polls and never polls itself. It
// owns neither devices nor rules. A slot holds 750 entries; what is beyond is never polled.
class THERMAL_API common_thermal_scheduler final : public algorithm_list {
public:
    using tdev_type_t = common_thermal_utils::tdev_type_t;
    using index_list = std::vector<unsigned long>;

    common_thermal_scheduler();
    common_thermal_scheduler(const common_thermal_scheduler&) = delete;
    common_thermal_scheduler& operator=(const common_thermal_scheduler&) = delete;

    // A device added after the first build of the schedule is listed, but never polled.
    void add_thermal_device(common_thermal_device* device);
    void add_thermal_device_done() { _tdev_done = true; }
    void add_thermal_algorithm(unsigned index, common_thermal_algorithm* added) override;
    void add_thermal_algorithm_done() override { _talg_done = true; }
    void free_all_thermal_algorithm_list() override { _algorithms.clear(); }
    // The next run() deals the rules again and polls nothing.
    void reschedule_talg() { _talg_scheduled = false; }

    unsigned get_thermal_algorithm_size() const override { return static_cast<unsigned>(_algorithms.size()); }
    // Null for an index that is not in use.
    common_thermal_algorithm* get_thermal_algorithm_by_index(unsigned long index) const {
        return index < _algorithms.size() ? _algorithms[index] : nullptr;
    }
    common_thermal_device* get_thermal_device_by_index(unsigned long index) const {
        return index < _devices.size() ? _devices[index] : nullptr;
    }
    std::vector<common_thermal_device*> get_all_thermal_device_list() const { return _devices; }
    std::vector<common_thermal_algorithm*> get_all_thermal_algorithm_list() const { return _algorithms; }

    // Indices of the devices of a kind, in order of addition.
    index_list get_all_thermal_device_fan_index_list() const { return fan_indices(); }
    index_list get_all_thermal_device_cpu_index_list() const {
        return indices_of(common_thermal_utils::tdev_cpu_channel);
    }
    index_list get_all_thermal_device_pci_index_list() const { return pci_indices(); }
    index_list get_all_thermal_device_event_index_list() const { return event_indices(); }
    index_list get_all_thermal_device_uefi_index_list() const { return uefi_indices(); }
    // The same without a copy.
    const index_list& fan_indices() const { return indices_of(common_thermal_utils::tdev_fan); }
    const index_list& event_indices() const { return indices_of(common_thermal_utils::tdev_event_status); }
    const index_list& pci_indices() const { return indices_of(common_thermal_utils::tdev_pci_slot); }
    const index_list& uefi_indices() const { return indices_of(common_thermal_utils::tdev_uefi); }

    // One step: selects the next slot, or builds the schedule and selects nothing. Until devices and rules are both
    // marked done it warns and selects nothing.
    void run(common_thermal_dao* dao);

    // What the last run() left. The list is valid until the next.
    std::uint32_t get_poll_counter() const { return _poll_counter; }
    std::uint32_t get_idle_time() const { return _idle_time; }
    bool last_schedule() const { return _last_schedule; }
    bool is_running_tdev_list() const { return _running_tdev_list; }
    bool is_running_algorithm_list() const { return _running_algorithm_list; }
    const std::uint32_t* get_current_scheduler_list() const { return _current_list; }
    std::uint32_t get_current_scheduler_list_size() const { return _current_size; }

    // The placement tables hand their slots out in turn.
    enum table_t : unsigned { general, event, cpu_temperature, dimm_channel, pci_request, algorithm };
    unsigned found_schedule_pos(unsigned table) const;
    void next_schedule_pos(unsigned table);
    // 0 if there is no such slot or it is full, and the index was dropped.
    int add_index_to_schedule(unsigned slot, unsigned long index);
    // True if it has just built the schedule.
    bool schedule_begin(common_thermal_dao* dao);
    void schedule_end(common_thermal_dao* dao, unsigned slot);

private:
    static constexpr unsigned slot_count = 32;
    static constexpr unsigned first_algorithm_slot = 16;
    static constexpr unsigned slot_capacity = 750;

    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): memory is touched as far as it is used
    struct slot {
        bool is_tdev = false;
        bool is_talg = false;
        std::uint32_t idle_time = 0;  // in eighths of a platform tick
        bool full = false;
        std::uint32_t count = 0;
        std::array<std::uint32_t, slot_capacity> index;
    };

    const index_list& indices_of(tdev_type_t kind) const;
    void place(table_t table, unsigned long index);
    void place_devices();
    void place_algorithms();
    void clear_slots(unsigned first, unsigned end);
    void record_schedule(common_thermal_dao& dao) const;

    bool _tdev_done = false;
    bool _talg_done = false;
    bool _tdev_scheduled = false;
    bool _talg_scheduled = false;
    bool _last_schedule = false;
    bool _running_tdev_list = false;
    bool _running_algorithm_list = false;
    std::uint32_t _poll_counter = 0;
    std::uint32_t _idle_time = 100;
    std::vector<common_thermal_algorithm*> _algorithms;
    std::vector<common_thermal_device*> _devices;
    std::map<tdev_type_t, index_list> _tdev_index;
    std::uint32_t _current_size = 0;
    const std::uint32_t* _current_list = nullptr;
    std::array<unsigned, 6> _table_position{};
    std::array<slot, slot_count> _slots;
};

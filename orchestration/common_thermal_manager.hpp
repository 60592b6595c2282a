#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "algorithm/common_thermal_algorithm_parser.hpp"
#include "device/common_thermal_device.hpp"
#include "foundation/common_thermal_utils.hpp"
#include "foundation/export.hpp"
#include "foundation/interned_name.hpp"
#include "orchestration/common_thermal_manager_sm.hpp"
#include "orchestration/common_thermal_scheduler.hpp"
#include "orchestration/slot_table.hpp"
#include "platform/devices.hpp"
#include "store/common_thermal_dao.hpp"

class common_thermal_device_fan;
struct ipmi_message;

// Owns time. A one-shot timer fires; the manager polls the slot that the scheduler picks and arms the timer again by the
// slot's idle time; after slot 31 it applies what the rules of the cycle asked for and forgets it. Firmware events only
// set boot stages. One manager a process, used on the thermal thread only.
//
// Board code sets _scheduler and _dao, constructs the manager, names the rule file, adds its devices, ends with
// add_thermal_device_done(); the firmware then calls initialize(). The scheduler's rules go with the manager.
class THERMAL_API common_thermal_manager : public logical_device {
public:
    using status_stage_t = common_thermal_utils::status_stage_t;
    using index_list = common_thermal_scheduler::index_list;

    // Signals that more than one place speaks of.
    static constexpr bmc_signal timer_signal = 176;
    static constexpr bmc_signal overloaded_signal = 87;  // carries the number of a named signal in data_word

    // Borrowed; null means nothing to poll, nothing to publish.
    static common_thermal_scheduler* _scheduler;
    static common_thermal_dao* _dao;

    common_thermal_manager();
    ~common_thermal_manager() override;

    void set_algorithm_parse_file(const std::string& path) { _algorithm_parse_file = path; }
    void add_thermal_device(common_thermal_device* device);
    void add_thermal_device_done();
    // Counts the processor agents that the channels depend on, which decides what caps go out. False for agents of both
    // families, which counts as none.
    bool chk_platform_cpu_type_number();
    // The bit through which this controller votes for the host to have power.
    void set_power_permission_voter(unsigned port);

    // Subscribes to the firmware's events and runs the first tick. Always 1.
    int initialize(controller* owner) override;

    void set_stage(status_stage_t stage, bool value);
    // True if every event status device has the stage; true without one.
    bool get_stage(status_stage_t stage) const;
    // 1, or 0 for a key that is not in the store. `value` may be null.
    static int get_thermal_dao_reading(const std::string& name, int instance, float* value);
    void set_uefi_event(std::uint16_t signal, std::uint8_t op_mode, std::uint8_t extra) const;

    // Events, from the state machine.
    void persistent_settings_available();
    void timer_expired();
    bool is_timer_signal(QSignal signal) const;

    // Requests, each served at the end of a cycle, one a cycle: a snapshot of devices, rules and store; the buffers of
    // the log rules; the histories of fans, caps and limits; the schedule; the rule file is read again.
    void ipmicmd_debug_on() { _debug_on_request = true; }
    void ipmicmd_debug_on_log_alg() { _log_alg_request = true; }
    void ipmicmd_debug_on_fan_alg() { _fan_alg_request = true; }
    void ipmicmd_debug_on_scheduler() { _scheduler_request = true; }
    void ipmicmd_load_algorithm() { _algorithm_loaded = false; }

    // What they come down to: files in the directory for diagnostics. `now` is in seconds.
    static void create_debug_tdev_information(unsigned long now);
    static void create_debug_talg_information(unsigned long now);
    static void create_debug_dao_information(unsigned long now);
    static void create_debug_mapping_information(unsigned long now);
    static void create_debug_scheduler_information(unsigned long now);
    static void create_debug_fan_alg_information(unsigned long now);
    static void create_debug_cap_alg_information(unsigned long now);
    static void create_debug_pwrlmt_alg_information(unsigned long now);
    static void create_log_alg_information(unsigned long now);

    // Handlers of an operator's commands, called between ticks. They return the completion code.
    static std::uint8_t debug_thermal(common_thermal_manager* manager, ipmi_message* message);
    static std::uint8_t set_fan_speed(common_thermal_manager* manager, ipmi_message* message);

    // The fan override of an operator. `control` chooses: 0 none, 1 fans by hand, 2 to 4 the tables 1 to `control` - 1
    // of the uefi devices; above 4 changes nothing. `zone` is a fan instance, 255 all fans, 0 none; `speed` is the duty
    // by hand. `v`, `d` and `e` belong to the host and are only kept.
    static void set_override_tbl(common_thermal_manager* manager, std::uint8_t control, std::uint8_t zone,
                                 std::uint8_t speed, std::uint8_t e, std::uint16_t v, std::uint16_t d);
    // Switch one table on or off; 0 stands for the fans by hand.
    void ipmicmd_override_table(unsigned table, bool enable, unsigned zone, unsigned speed, std::uint8_t e,
                                std::uint16_t v, std::uint16_t d);
    void ipmivmd_override_cancel(unsigned table);
    void set_manual_fan_speed(std::uint8_t zone, std::uint8_t speed);
    // The stored override: 0 in `write` reads, 1 writes. A write returns 0, or -1 for a control that is not kept, 1 or
    // above 4. A read returns the sum of what was missing: 1 control, which counts as 0; 2 zone or speed, which stay; 4
    // the rest, which counts as 0.
    int prop_rw_override_tbl(std::uint8_t write, std::uint8_t& control, std::uint8_t& zone, std::uint8_t& speed,
                             std::uint8_t& e, std::uint16_t& v, std::uint16_t& d);
    // Brings the stored override back, once in the life of the manager.
    void load_fan_override_tbl();
    // Keeps the policy that goes with a control, and tells the firmware.
    void set_fan_accelerate_policy(std::uint8_t control);

    // An operator's limits for the cards in slots of location 1, by slot number; 255 sets all. Power in W, peak in %.
    void ipmicmd_get_tgp_user(ipmi_message* message);
    void ipmicmd_set_tgp_user(ipmi_message* message);
    void ipmicmd_get_edpp_user(ipmi_message* message);
    void ipmicmd_set_edpp_user(ipmi_message* message);
    // Goes out when the first card is allowed more than the machine's own data say, and when none is any longer.
    void send_tgp_user_exceed_notification(std::uint8_t cards);
    // Bring the stored limits back. 0 without a scheduler or a store, otherwise 1.
    int load_ipmiprop_pci_tgp_user();
    int load_ipmiprop_pci_edpp_user();

    // Limits in W that the firmware knows, for each card in a slot of location 1.
    enum config_type : std::uint32_t { config_tgp_platform = 1, config_tgp_vpd = 2 };
    // 1, or 0 for a value of 0, which leaves the limit as it is, and for an unknown type.
    int import_config(config_type type, unsigned value);

    // Tells other parts of the firmware, by properties, how much the cards draw at most. 0 until the data path has been
    // up for three cycles, then 1.
    int update_ipmiprop_pci_maxwatt() const;

    // One tick.
    void poll_thermal_device_and_algorithm();
    void poll_thermal_device(unsigned long now);
    void poll_thermal_algorithm(unsigned long now);
    void load_algorithm_rule(unsigned long now);

    // Arbitration: the wish of a rule against the best one of this cycle so far. Those for slots are also compared
    // while the rule does not hold, and then wish for nothing.
    void compare_algorithm_fan(common_thermal_algorithm* rule, const index_list& fans);
    void compare_algorithm_capping_cpu(common_thermal_algorithm* rule);
    void compare_algorithm_capping_dimm(common_thermal_algorithm* rule);
    void compare_algorithm_capping_system(common_thermal_algorithm* rule);
    void compare_algorithm_capping_nvme(common_thermal_algorithm* rule);
    void compare_algorithm_capping_fan(common_thermal_algorithm* rule);
    void compare_algorithm_capping_power_permission(common_thermal_algorithm* rule);
    void compare_algorithm_pciegen_pwrbrk(common_thermal_algorithm* rule, const index_list& pci);
    void compare_algorithm_powerlimit_pci(common_thermal_algorithm* rule, const index_list& pci);
    bool replaced_algorithm_fan(unsigned fan, std::uint8_t duty) const;
    bool replaced_algorithm_capping(unsigned kind, std::uint16_t value) const;
    bool replaced_algorithm_pciegen_pwrbrk(unsigned long key, bool brake) const;
    bool replaced_algorithm_powerlimit_pci(unsigned long key, std::uint8_t percentage) const;

    // End of a cycle: the winners go out, the tables start anew.
    void reset_thermal_algorithm_status(unsigned long now);
    void apply_fan_pwm_value(unsigned long now, const index_list& fans);
    static bool compare_psu_pwm(const common_thermal_device_fan* fan, std::uint8_t value);
    void write_pwm_to_psu(std::uint8_t value) const;
    void apply_capping_value(unsigned long now);
    void handle_power_permission(bool enable);
    // Whether the brake is in force: not in mode 0. In a mode above 1 it also claims every slot while the large cards
    // together may draw a third of what the power supplies give.
    bool chk_pciegen_pwrbrk_uefi_setting(const index_list& pci);
    void apply_pciegen_pwrbrk_slot(unsigned long now, const index_list& pci);
    // Goes out when the first slot brakes and when the last one has let go.
    void send_pciegen_pwrbrk_notification(std::uint8_t slots);
    void apply_powerlimit_pci_slot(unsigned long now, const index_list& pci);
    void clear_fan_pwm_value(const index_list& fans);
    void clear_capping_value();
    void clear_pciegen_pwrbrk_slot();
    void clear_powerlimit_pci_slot(const index_list& pci);

    // The winner of a fan in this cycle; duty in percent. The rest is of an earlier cycle while it is not claimed.
    struct fan_alg_t {
        unsigned fan = 0;
        bool claimed = false;
        interned_name name{};
        std::uint32_t instance = 0;
        std::uint8_t value = 0;
        int unbeaten = -1;  // a duty up to this one changes nothing for the rest of the tick
    };
    // Null if the fan does not exist; look at `claimed`, which the end of a cycle clears.
    const fan_alg_t* fan_winner(unsigned fan) const;

    enum capping_kind : unsigned {
        capping_cpu,
        capping_dimm,
        capping_system,
        capping_nvme,
        capping_dimm_percentage,
        capping_fan_maximum,
        capping_power_permission,
        capping_kinds,
    };
    // The lowest request of this cycle and the value that went out last; 65535 is no cap.
    struct cap_alg_t {
        interned_name name{"NA"};
        std::uint32_t instance = 0;
        std::uint16_t value = 65535;
        std::uint16_t value_applied = 65535;
    };
    const cap_alg_t& cap_winner(capping_kind kind) const { return _cap_alg[kind]; }

    // Claim of this cycle and what went out last on a slot, by slot key; null for a slot that nothing was claimed on or
    // applied to yet. The value of a brake is 0 or 1, that of a limit a percentage, of which 0 and 100 are none.
    const slot_table::row* brake_winner(std::uint32_t key) const { return _pwrbrk_alg.find(key); }
    const slot_table::row* limit_winner(std::uint32_t key) const { return _pwrlmt_alg.find(key); }

    // The parameters of the drives' capping that went out last, and the instance of their rule.
    template <class... Values>
    struct nvme_params {
        int instance = -1;
        std::tuple<Values...> values{};
    };

private:
    // A fan device with its row.
    struct fan_target {
        common_thermal_device_fan* fan;
        fan_alg_t* row;
        bool shares_row;   // with another device of the same instance
        fan_target* next;  // of the same low 8 bits of the instance, as rules name fans
    };

    static constexpr std::uint8_t settled_cycles = 3;  // after the data path came up the slots know their cards
    static constexpr const char* accelerate_policy = "/ac/vekt2/therm_override/accelerate_policy";

    void register_commands();
    static void withdraw_commands();
    void reserve_timer(controller* owner);
    void start(unsigned long now);
    unsigned run_slot(unsigned long now);
    void end_cycle(unsigned long now);
    void count_dp_ready_cycle();
    void serve_one_request(unsigned long now);
    void arm_timer(unsigned ticks);

    void poll_rule(common_thermal_algorithm& rule, unsigned long index, unsigned long now);
    void compare_asserted_rule(common_thermal_algorithm& rule);
    void add_fan_row(unsigned instance);
    void begin_claims(const index_list& fans);
    void know_fans(const index_list& fans);
    void claim_fans(const common_thermal_algorithm& rule);
    void claim_fan(fan_target& target, const common_thermal_algorithm& rule, std::uint8_t duty);
    void claim_manually(fan_target& target);
    void compare_capping(capping_kind kind, const common_thermal_algorithm& rule, std::uint16_t value);
    template <class Wish>
    void claim_slots(common_thermal_algorithm& rule, const index_list& pci, const Wish& wish, slot_table& rows);
    void compare_slot_wishes(common_thermal_algorithm& rule);
    void apply_slot_claims(unsigned long now, const index_list& pci);
    void take_brake_mode();
    bool is_power_short(const index_list& pci);
    std::uint32_t total_system_power();
    void act_on_capping(capping_kind kind, std::uint16_t value);
    void send_capping_request(capping_kind kind, std::uint16_t value) const;
    void apply_nvme_params();

    std::unique_ptr<common_thermal_manager_sm> _fsm;
    std::unique_ptr<QTimeEvt> _timer;
    QSignal _timer_signal = timer_signal;
    bool _polling_started = false;
    bool _first_tick_done = false;
    std::string _algorithm_parse_file;
    bool _algorithm_loaded = false;
    rule_set _rules;
    bool _debug_on_request = false;
    bool _log_alg_request = false;
    bool _fan_alg_request = false;
    bool _scheduler_request = false;
    std::uint8_t _dp_ready_cycles = 0;  // complete ones since the data path came up, as far as they matter
    bool _pci_maxwatt_published = false;
    bool _fan_override_loaded = false;

    std::uint8_t _uefi_perf_sig = 0;
    std::uint8_t _cff2_fan_speed_ctrl_sig = 0;
    std::uint8_t _cpu_intel = 0;  // processor agents of each family
    std::uint8_t _cpu_amd = 0;

    common_thermal_scheduler* _known_scheduler = nullptr;
    index_list _known_fans;
    std::vector<fan_alg_t> _fan_alg;       // one row for each fan instance, ascending
    std::vector<fan_target> _fan_targets;  // in list order
    std::array<fan_target*, 256> _targets_by_byte{};
    std::optional<bool> _scale_manual_speed;  // unknown until this tick meets a manual fan
    std::array<cap_alg_t, capping_kinds> _cap_alg{};
    nvme_params<std::uint8_t, std::uint8_t, std::uint8_t> _nvme_params_applied;
    nvme_params<std::uint8_t, std::uint8_t, std::uint16_t, std::uint16_t> _nvme_params_v2_applied;
    slot_table _pwrbrk_alg;
    slot_table _pwrlmt_alg;

    std::uint8_t _pwrbrk_mode = 4;   // no mode: the first one always differs
    bool _pwrbrk_enforced = false;   // the brake went out in the last cycle
    bool _pwrbrk_announced = false;  // the last notice was of a brake
    bool _tgp_announced = false;     // the last notice was of a card above its limit
    store_reference _pwrbrk_mode_setting{"common_thermal_device_uefi.pciegen_pwrbrk_mode", 1};

    common_thermal_dao::dev_data_t _fan_maximum;
    common_thermal_utils _port_total_system_psu;
    common_thermal_utils _port_total_high_power_pcie;
    common_thermal_utils _port_power_permission;
};

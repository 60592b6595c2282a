#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "algorithm/rule_group.hpp"
#include "foundation/common_thermal_utils.hpp"
#include "foundation/export.hpp"
#include "foundation/ini_file.hpp"
#include "foundation/interned_name.hpp"
#include "foundation/nap.hpp"
#include "store/common_thermal_dao.hpp"

// One rule of the rule file: conditions on store values, a result that poll() computes while they hold, and targets that
// take the result. It never touches an actuator: it publishes the result and leaves its wishes where the manager
// compares them. While its conditions do not hold, result and wishes stand still and claim no fan and no cap.
// `dao` is never null.
class THERMAL_API common_thermal_algorithm {
public:
    using talg_type_t = common_thermal_utils::talg_type_t;
    using operator_t = common_thermal_utils::operator_t;

    // Which targets the results of a class go to.
    enum action_support_t : std::uint32_t {
        action_none = 0,
        action_fan_map = 0x1,
        action_capping_cpu = 0x2,
        action_capping_dimm = 0x4,
        action_capping_system = 0x8,
        action_pciegen_pwrbrk = 0x10,
        action_capping_nvme = 0x20,
        action_capping_fan = 0x40,
        action_powerlimit_pci = 0x80,
        action_capping_power_permission = 0x100,
        action_reassertion_deferment = 0x10000,
    };

    // What a rule asks of one fan; duty in percent.
    struct fan_demand {
        std::uint8_t instance;
        std::uint8_t duty;
    };

    common_thermal_algorithm(const char* name, int instance, talg_type_t type, std::uint32_t action_support = 0);
    virtual ~common_thermal_algorithm() = default;
    common_thermal_algorithm(const common_thermal_algorithm&) = delete;
    common_thermal_algorithm& operator=(const common_thermal_algorithm&) = delete;

    // Read the class's own keys of a rule group. Text that is no number leaves through an exception.
    virtual void parse_parameters(ini_file::std_handler* rules, const std::string& group) = 0;
    // By default the lists of the targets that the class supports; its caps offer nothing yet.
    virtual void parse_action(ini_file::std_handler* rules, const std::string& group);
    // One computation, from the store to the result.
    virtual void poll(common_thermal_dao* dao, unsigned long timestamp) = 0;
    // The parameters, a line each.
    virtual std::string debug() = 0;
    // The keys that parse_parameters() reads.
    virtual std::vector<rule_key> parameter_keys() const { return {}; }

    int get_instance() const { return _result.instance; }
    const std::string& get_name() const { return _name.text(); }
    const interned_name& name_handle() const { return _name; }
    const std::string& get_key_custom_result() const { return _custom_result.name; }
    talg_type_t get_alg_type() const { return _alg_type; }

    static std::string create_dao_key_prefix(const std::string& prefix, const std::string& key) {
        return prefix + "." + key;
    }

    // Asserted: in this pass the conditions held and the rule was polled.
    bool is_asserted() const { return _asserted_now; }
    void asserted() { _asserted_now = true; }
    void deasserted() { _asserted_now = false; }
    bool get_last_state() const { return _last_state; }
    void update_last_state() { _last_state = _asserted_now; }
    bool is_pre_asserted() const { return _pre_asserted; }
    void update_pre_asserted() { _pre_asserted = _asserted_now; }
    bool has_first_assertion() const { return _first_assertion; }
    void set_first_assertion(bool value) { _first_assertion = value; }

    // All conditions must hold, in ascending number; a value missing from the store fails. No condition: true.
    bool are_conditions_asserted(common_thermal_dao* dao);
    void add_condition(unsigned number, std::string key, int instance, operator_t op, float value);

    // poll(), then the result to the store and to the targets.
    void polling(common_thermal_dao* dao, unsigned long timestamp);

    // Sleep for some seconds of the monotonic clock, the end second included.
    void nap_set(unsigned long timestamp, std::uint8_t seconds) {
        _nap.set(get_key_custom_result().c_str(), timestamp, seconds);
    }
    bool nap_chk(unsigned long timestamp) { return _nap.check(get_key_custom_result().c_str(), timestamp); }

    bool is_supported_action_fan_map() const { return supports(action_fan_map); }
    bool is_supported_action_sensor_capping_cpu() const { return supports(action_capping_cpu); }
    bool is_supported_action_sensor_capping_dimm() const { return supports(action_capping_dimm); }
    bool is_supported_action_sensor_capping_system() const { return supports(action_capping_system); }
    bool is_supported_action_sensor_pciegen_pwrbrk() const { return supports(action_pciegen_pwrbrk); }
    bool is_supported_action_sensor_capping_nvme() const { return supports(action_capping_nvme); }
    bool is_supported_action_sensor_capping_fan() const { return supports(action_capping_fan); }
    bool is_supported_action_sensor_powerlimit_pci() const { return supports(action_powerlimit_pci); }
    bool is_supported_action_sensor_capping_power_permission() const {
        return supports(action_capping_power_permission);
    }
    bool is_supported_reassertion_deferment() const { return supports(action_reassertion_deferment); }
    bool supports(std::uint32_t action) const { return (_action_support & action) != 0; }
    // Most rules drive fans and nothing else.
    bool supports_more_than_fans() const { return (_action_support & ~std::uint32_t{action_fan_map}) != 0; }

    void set_action_fan_map(std::uint8_t instance, std::uint8_t duty);
    bool is_in_action_fan(std::uint8_t instance) const;
    // 0 for a fan that the rule does not name.
    std::uint8_t get_action_fan_duty_by_instance(std::uint8_t instance) const;
    // Ascending by instance.
    const std::vector<fan_demand>& fan_demands() const { return _fan_demands; }

    // A slot key is (location << 16) | slot number. The getters enter a slot that is not there with 0.
    void set_action_pciegen_pwrbrk(std::uint16_t location, std::uint16_t slot_no, bool brake);
    bool is_in_action_pciegen_pwrbrk_slot(unsigned long key) const;
    bool get_action_pciegen_pwrbrk_by_location_slot_no(std::uint16_t location, std::uint16_t slot_no);
    void set_action_powerlimit_pci(std::uint16_t location, std::uint16_t slot_no, std::uint8_t limit);
    bool is_in_action_powerlimit_pci_slot(unsigned long key) const;
    std::uint8_t get_action_powerlimit_pci_by_location_slot_no(std::uint16_t location, std::uint16_t slot_no);

    // Caps offered to the manager; 65535 is no cap.
    void set_action_sensor_capping_cpu(std::uint16_t value) { _capping_cpu = value; }
    void set_action_sensor_capping_dimm(std::uint16_t value) { _capping_dimm = value; }
    void set_action_sensor_capping_dimm_percentage(std::uint16_t value) { _capping_dimm_percentage = value; }
    void set_action_sensor_capping_system(std::uint16_t value) { _capping_system = value; }
    void set_action_sensor_capping_nvme(std::uint16_t value) { _capping_nvme = value; }
    void set_action_sensor_capping_fan(std::uint16_t value) { _capping_fan = value; }
    void set_action_sensor_capping_power_permission(std::uint16_t value) { _capping_power_permission = value != 0; }
    std::uint16_t get_action_sensor_capping_cpu_value() const { return _capping_cpu; }
    std::uint16_t get_action_sensor_capping_dimm_value() const { return _capping_dimm; }
    std::uint16_t get_action_sensor_capping_dimm_value_percentage() const { return _capping_dimm_percentage; }
    std::uint16_t get_action_sensor_capping_system_value() const { return _capping_system; }
    std::uint16_t get_action_sensor_capping_nvme_value() const { return _capping_nvme; }
    std::uint16_t get_action_sensor_capping_fan_value() const { return _capping_fan; }
    std::uint16_t get_action_sensor_capping_power_permission_value() const { return _capping_power_permission ? 1 : 0; }

    // "OP_GE" and the like; a value that is no operator gives its decimal text.
    static std::string op_to_string(operator_t op);

    // The sections that every rule shares.
    void parse_result_name(ini_file::std_handler* rules, const std::string& group);
    void parse_conditions(ini_file::std_handler* rules, const std::string& group);
    void parse_action_fan_map(ini_file::std_handler* rules, const std::string& group);
    void parse_action_pciegen_pwrbrk(ini_file::std_handler* rules, const std::string& group);
    void parse_action_powerlimit_pci(ini_file::std_handler* rules, const std::string& group);

    // The common part of the diagnostic text; debugging() adds the parameters.
    std::string get_debug_txt() const;
    std::string debugging() { return get_debug_txt() + debug() + "\n"; }

protected:
    float result() const { return _result.value; }
    void set_result(float value) { _result.value = value; }

private:
    struct condition {
        unsigned number = 0;
        operator_t op = common_thermal_utils::OP_NON;
        float value = 0.0f;
        store_reference live;
    };
    // The rule's own key, which stands once the name is read.
    struct custom_result {
        std::string name;
        store_place place;
    };

    void enter_pciegen_pwrbrk(std::uint32_t key, bool brake);
    void enter_powerlimit_pci(std::uint32_t key, std::uint8_t limit);
    void hand_result_to_targets();
    void offer_caps(std::uint16_t value);
    void log_result() const;

    interned_name _name;
    talg_type_t _alg_type;
    std::uint32_t _action_support;
    common_thermal_dao::dev_data_t _result;
    custom_result _custom_result;
    std::vector<condition> _conditions;
    std::vector<fan_demand> _fan_demands;
    std::map<std::uint32_t, bool> _action_pciegen_pwrbrk;
    std::map<std::uint32_t, std::uint8_t> _action_powerlimit_pci;
    nap _nap;
    std::uint16_t _capping_cpu = 0xFFFF;
    std::uint16_t _capping_dimm = 0xFFFF;
    std::uint16_t _capping_dimm_percentage = 0xFFFF;
    std::uint16_t _capping_system = 0xFFFF;
    std::uint16_t _capping_nvme = 0xFFFF;
    std::uint16_t _capping_fan = 0xFFFF;
    bool _capping_power_permission = true;
    bool _asserted_now = false;
    bool _pre_asserted = false;
    bool _first_assertion = false;
    bool _last_state = false;
};

#pragma once

#include "algorithm/parameter_table.hpp"

// Margins, hysteresis and timers of the power capping that the storage firmware does itself. Units are the firmware's.
struct THERMAL_API nvme_cap_params_parameter {
    float nvme_pwr_cap_margin1 = 0.0f;
    float nvme_pwr_cap_margin2 = 1.0f;
    float nvme_pwr_cap_hysteresis = 0.0f;
};

struct THERMAL_API nvme_cap_params_v2_parameter {
    float nvme_pwr_cap_margin_lower = 0.0f;
    float nvme_pwr_cap_margin_upper = 1.0f;
    float nvme_pwr_cap_timer_lower = 0.0f;
    float nvme_pwr_cap_timer_upper = 1.0f;
};

// Of all the rules of a class whose conditions hold, the first that polls in a cycle is the effective one: its first
// record goes out at the end of the cycle. A rule without records never is. The shared state belongs to the one manager.
template <class Record>
class THERMAL_API nvme_cap_params_rule : public algorithm_with_parameters<Record> {
public:
    struct effective_params {
        std::int32_t instance = -1;
        Record values{};
    };

    static bool is_effective;       // the place of this cycle is free
    static std::int32_t _eff_inst;  // the rule that has it; negative is none
    static effective_params _eff_params;
    static std::int32_t _cap_prop_status;    // the byte last read from the property
    static std::int32_t _cap_prop_creation;  // 1 once the class has created the property

    // The place is free for the next cycle.
    static void open_place();
    // As in a fresh process.
    static void forget_everything();

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

protected:
    nvme_cap_params_rule(const parameter_layout<Record>& layout, const char* name, int instance);

    // Makes sure that the firmware's switch is there, and notes what it says.
    static void look_at_property();
    // The diagnostic text, given what the firmware holds.
    std::string text_with(const parameter_layout<Record>& layout, const std::string& published);

private:
    bool _effective = false;
};

extern template class nvme_cap_params_rule<nvme_cap_params_parameter>;
extern template class nvme_cap_params_rule<nvme_cap_params_v2_parameter>;

// The first generation: margins and a hysteresis.
class THERMAL_API common_thermal_algorithm_config_nvme_cap_params
    : public nvme_cap_params_rule<nvme_cap_params_parameter> {
public:
    explicit common_thermal_algorithm_config_nvme_cap_params(int instance);
    void set_parameter_cap_margin1(unsigned index, float value) { record(index).nvme_pwr_cap_margin1 = value; }
    void set_parameter_cap_margin2(unsigned index, float value) { record(index).nvme_pwr_cap_margin2 = value; }
    void set_parameter_cap_hysteresis(unsigned index, float value) { record(index).nvme_pwr_cap_hysteresis = value; }

    // The effective rule's, without fraction, the low 8 bits. False if there is none.
    static bool get_effective_params(int& instance, std::uint8_t& margin1, std::uint8_t& margin2,
                                     std::uint8_t& hysteresis);
    // Publishes them to the firmware.
    static void apply_nvme_params(std::uint8_t margin1, std::uint8_t margin2, std::uint8_t hysteresis);
    // What the firmware holds.
    static void dbg_get_sep_params(std::uint8_t& margin1, std::uint8_t& margin2, std::uint8_t& hysteresis);

    std::string debug() override;
};

// The second: lower and upper margins and timers, 16 bits for a timer.
class THERMAL_API common_thermal_algorithm_config_nvme_cap_params_v2
    : public nvme_cap_params_rule<nvme_cap_params_v2_parameter> {
public:
    explicit common_thermal_algorithm_config_nvme_cap_params_v2(int instance);
    void set_parameter_cap_margin_lower(unsigned index, float value) {
        record(index).nvme_pwr_cap_margin_lower = value;
    }
    void set_parameter_cap_margin_upper(unsigned index, float value) {
        record(index).nvme_pwr_cap_margin_upper = value;
    }
    void set_parameter_cap_timer_lower(unsigned index, float value) { record(index).nvme_pwr_cap_timer_lower = value; }
    void set_parameter_cap_timer_upper(unsigned index, float value) { record(index).nvme_pwr_cap_timer_upper = value; }

    static bool get_effective_params(int& instance, std::uint8_t& margin_lower, std::uint8_t& margin_upper,
                                     std::uint16_t& timer_lower, std::uint16_t& timer_upper);
    static void apply_nvme_params(std::uint8_t margin_lower, std::uint8_t margin_upper, std::uint16_t timer_lower,
                                  std::uint16_t timer_upper);
    static void dbg_get_sep_params(std::uint8_t& margin_lower, std::uint8_t& margin_upper, std::uint16_t& timer_lower,
                                   std::uint16_t& timer_upper);

    std::string debug() override;
};

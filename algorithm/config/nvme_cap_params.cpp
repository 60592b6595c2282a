#include "algorithm/config/nvme_cap_params.hpp"

#include <initializer_list>

#include "foundation/float_conversion.hpp"
#include "platform/devices.hpp"
#include "platform/nvme.hpp"

using firmware = sep_comm_logical_device;

namespace {

using v1 = nvme_cap_params_parameter;
using v2 = nvme_cap_params_v2_parameter;

// The firmware's switch for the capping of drives, and what it is made with.
constexpr const char* cap_property = "/ac/zorm/agentless/nvme_pwr_cap";
constexpr std::uint8_t cap_switched_on = 1;
constexpr std::uint8_t second_generation = 2;

constexpr parameter<v1> v1_fields[] = {
    {"\nnvme_pwr_cap_margin1=", "PARAMETER_NVME_PWR_CAP_MARGIN1", &v1::nvme_pwr_cap_margin1},
    {"\nnvme_pwr_cap_margin2=", "PARAMETER_NVME_PWR_CAP_MARGIN2", &v1::nvme_pwr_cap_margin2},
    {"\nnvme_pwr_cap_hysteresis=", "PARAMETER_NVME_PWR_CAP_HYSTERESIS", &v1::nvme_pwr_cap_hysteresis},
};
constexpr parameter<v2> v2_fields[] = {
    {"\nnvme_pwr_cap_margin_lower=", "PARAMETER_NVME_PWR_CAP_MARGIN_LOWER", &v2::nvme_pwr_cap_margin_lower},
    {"\nnvme_pwr_cap_margin_upper=", "PARAMETER_NVME_PWR_CAP_MARGIN_UPPER", &v2::nvme_pwr_cap_margin_upper},
    {"\nnvme_pwr_cap_timer_lower=", "PARAMETER_NVME_PWR_CAP_TIMER_LOWER", &v2::nvme_pwr_cap_timer_lower},
    {"\nnvme_pwr_cap_timer_upper=", "PARAMETER_NVME_PWR_CAP_TIMER_UPPER", &v2::nvme_pwr_cap_timer_upper},
};
constexpr parameter_layout<v1> v1_layout{.fields = v1_fields};
constexpr parameter_layout<v2> v2_layout{.fields = v2_fields};

std::string listed(std::initializer_list<unsigned> values) {
    std::string text;
    for (const unsigned value : values) {
        text += (text.empty() ? "" : ",") + std::to_string(value);
    }
    return text;
}

}  // namespace

template <class Record>
bool nvme_cap_params_rule<Record>::is_effective = false;
template <class Record>
std::int32_t nvme_cap_params_rule<Record>::_eff_inst = -1;
template <class Record>
typename nvme_cap_params_rule<Record>::effective_params nvme_cap_params_rule<Record>::_eff_params{};
template <class Record>
std::int32_t nvme_cap_params_rule<Record>::_cap_prop_status = -1;
template <class Record>
std::int32_t nvme_cap_params_rule<Record>::_cap_prop_creation = -1;

template <class Record>
nvme_cap_params_rule<Record>::nvme_cap_params_rule(const parameter_layout<Record>& layout, const char* name,
                                                   int instance)
    : algorithm_with_parameters<Record>(layout, name, instance, common_thermal_utils::talg_config_nvme_cap_params) {}

template <class Record>
void nvme_cap_params_rule<Record>::open_place() {
    is_effective = true;
    _eff_inst = -1;
}

template <class Record>
void nvme_cap_params_rule<Record>::forget_everything() {
    is_effective = false;
    _eff_inst = -1;
    _eff_params = {};
    _cap_prop_status = -1;
    _cap_prop_creation = -1;
}

template <class Record>
void nvme_cap_params_rule<Record>::poll(common_thermal_dao*, unsigned long) {
    _effective = is_effective && !this->records().empty();
    if (_effective) {
        _eff_inst = this->get_instance();
        _eff_params = {this->get_instance(), this->records().begin()->record};
        is_effective = false;
    }
}

template <class Record>
void nvme_cap_params_rule<Record>::look_at_property() {
    if (const bmc_property* property = DM::get_property(cap_property)) {
        _cap_prop_status = property->get_byte();
    } else {
        bmc_property::create(cap_property, cap_switched_on, property_flags);
        _cap_prop_creation = 1;
    }
}

template <class Record>
std::string nvme_cap_params_rule<Record>::text_with(const parameter_layout<Record>& layout,
                                                    const std::string& published) {
    std::string text;
    for (const auto& [number, entry] : this->records()) {
        text += "\nindex=" + std::to_string(number) + parameter_text(layout.fields, entry);
        text += std::string("\neffective=") + (_effective ? "1" : "0");
        text += "\neffective instance=" + std::to_string(_eff_inst);
        text += "\ncap_property_creation=" + std::to_string(_cap_prop_creation);
        text += "\ncap_property_status=" + std::to_string(_cap_prop_status);
        text += "\nsep params=[" + published + "]";
    }
    return text;
}

template class nvme_cap_params_rule<nvme_cap_params_parameter>;
template class nvme_cap_params_rule<nvme_cap_params_v2_parameter>;

common_thermal_algorithm_config_nvme_cap_params::common_thermal_algorithm_config_nvme_cap_params(int instance)
    : nvme_cap_params_rule(v1_layout, "common_thermal_algorithm_config_nvme_cap_params", instance) {}

bool common_thermal_algorithm_config_nvme_cap_params::get_effective_params(int& instance, std::uint8_t& margin1,
                                                                           std::uint8_t& margin2,
                                                                           std::uint8_t& hysteresis) {
    if (_eff_inst < 0) {
        return false;
    }
    instance = _eff_params.instance;
    margin1 = saturate_to_byte(_eff_params.values.nvme_pwr_cap_margin1);
    margin2 = saturate_to_byte(_eff_params.values.nvme_pwr_cap_margin2);
    hysteresis = saturate_to_byte(_eff_params.values.nvme_pwr_cap_hysteresis);
    return true;
}

void common_thermal_algorithm_config_nvme_cap_params::apply_nvme_params(std::uint8_t margin1, std::uint8_t margin2,
                                                                        std::uint8_t hysteresis) {
    look_at_property();
    firmware::NVME_PWR_CAP_MARGIN1 = margin1;
    firmware::NVME_PWR_CAP_MARGIN2 = margin2;
    firmware::NVME_PWR_CAP_HYSTERESIS = hysteresis;
}

void common_thermal_algorithm_config_nvme_cap_params::dbg_get_sep_params(std::uint8_t& margin1, std::uint8_t& margin2,
                                                                         std::uint8_t& hysteresis) {
    margin1 = firmware::NVME_PWR_CAP_MARGIN1;
    margin2 = firmware::NVME_PWR_CAP_MARGIN2;
    hysteresis = firmware::NVME_PWR_CAP_HYSTERESIS;
}

std::string common_thermal_algorithm_config_nvme_cap_params::debug() {
    std::uint8_t margin1 = 0;
    std::uint8_t margin2 = 0;
    std::uint8_t hysteresis = 0;
    dbg_get_sep_params(margin1, margin2, hysteresis);
    return text_with(v1_layout, listed({margin1, margin2, hysteresis}));
}

common_thermal_algorithm_config_nvme_cap_params_v2::common_thermal_algorithm_config_nvme_cap_params_v2(int instance)
    : nvme_cap_params_rule(v2_layout, "common_thermal_algorithm_config_nvme_cap_params_v2", instance) {}

bool common_thermal_algorithm_config_nvme_cap_params_v2::get_effective_params(int& instance, std::uint8_t& margin_lower,
                                                                              std::uint8_t& margin_upper,
                                                                              std::uint16_t& timer_lower,
                                                                              std::uint16_t& timer_upper) {
    if (_eff_inst < 0) {
        return false;
    }
    instance = _eff_params.instance;
    margin_lower = saturate_to_byte(_eff_params.values.nvme_pwr_cap_margin_lower);
    margin_upper = saturate_to_byte(_eff_params.values.nvme_pwr_cap_margin_upper);
    timer_lower = saturate_to_word(_eff_params.values.nvme_pwr_cap_timer_lower);
    timer_upper = saturate_to_word(_eff_params.values.nvme_pwr_cap_timer_upper);
    return true;
}

void common_thermal_algorithm_config_nvme_cap_params_v2::apply_nvme_params(std::uint8_t margin_lower,
                                                                           std::uint8_t margin_upper,
                                                                           std::uint16_t timer_lower,
                                                                           std::uint16_t timer_upper) {
    look_at_property();
    firmware::NVME_PWR_CAP_MARGIN_LOWER = margin_lower;
    firmware::NVME_PWR_CAP_MARGIN_UPPER = margin_upper;
    firmware::NVME_PWR_CAP_TIMER_LOWER = timer_lower;
    firmware::NVME_PWR_CAP_TIMER_UPPER = timer_upper;
    firmware::NVME_PWR_CAP_ALG_VER = second_generation;
}

void common_thermal_algorithm_config_nvme_cap_params_v2::dbg_get_sep_params(std::uint8_t& margin_lower,
                                                                            std::uint8_t& margin_upper,
                                                                            std::uint16_t& timer_lower,
                                                                            std::uint16_t& timer_upper) {
    margin_lower = firmware::NVME_PWR_CAP_MARGIN_LOWER;
    margin_upper = firmware::NVME_PWR_CAP_MARGIN_UPPER;
    timer_lower = firmware::NVME_PWR_CAP_TIMER_LOWER;
    timer_upper = firmware::NVME_PWR_CAP_TIMER_UPPER;
}

std::string common_thermal_algorithm_config_nvme_cap_params_v2::debug() {
    std::uint8_t margin_lower = 0;
    std::uint8_t margin_upper = 0;
    std::uint16_t timer_lower = 0;
    std::uint16_t timer_upper = 0;
    dbg_get_sep_params(margin_lower, margin_upper, timer_lower, timer_upper);
    return text_with(v2_layout, listed({margin_lower, margin_upper, timer_lower, timer_upper}));
}

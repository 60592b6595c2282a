#pragma once

#include "algorithm/adapter_list.hpp"
#include "algorithm/control/cubic.hpp"

struct support_list_pci_tier_row : adapter_identity, cubic_curve {
    float t_min = 0.0f;  // wins over t_max
    float t_max = 0.0f;
    float r_max = 0.0f;
};

struct support_list_pci_tier_parameter : adapter_identity_references {
    support_list_pci_tier_parameter() : adapter_identity_references(1) {}

    store_reference t_reference{1};
    numbered_list<support_list_pci_tier_row> rows;
};

// Fan curves for adapters: the slot's temperature, held in the range of the first row of the adapter, runs through the
// row's cubic. The largest output counts; a slot that no row knows has no say, an empty one ends the pass. A lost
// temperature gives the output of t_min.
class THERMAL_API common_thermal_algorithm_support_list_pci_tier
    : public adapter_list<support_list_pci_tier_parameter> {
public:
    explicit common_thermal_algorithm_support_list_pci_tier(int instance);

    // Rows 1 to `count`, all 0.0.
    void set_parameter_txyzabcd_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }
    void set_parameter_dao_t(unsigned index, std::string key, int instance) {
        record(index).t_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_t_min(unsigned index, unsigned row_number, float value) { row(index, row_number).t_min = value; }
    void set_parameter_t_max(unsigned index, unsigned row_number, float value) { row(index, row_number).t_max = value; }
    void set_parameter_a(unsigned index, unsigned row_number, float value) { row(index, row_number).a = value; }
    void set_parameter_b(unsigned index, unsigned row_number, float value) { row(index, row_number).b = value; }
    void set_parameter_c(unsigned index, unsigned row_number, float value) { row(index, row_number).c = value; }
    void set_parameter_d(unsigned index, unsigned row_number, float value) { row(index, row_number).d = value; }
    void set_parameter_r_max(unsigned index, unsigned row_number, float value) { row(index, row_number).r_max = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

private:
    void log_pass(const support_list_pci_tier_row& row, float r, float t) const;
};

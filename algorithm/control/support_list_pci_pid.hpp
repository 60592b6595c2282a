#pragma once

#include "algorithm/adapter_list.hpp"
#include "algorithm/control/pid_law.hpp"

struct support_list_pci_pid_row : adapter_identity, pid_setting {
    support_list_pci_pid_row() { r_max = 0.0f; }
};

// One slot. The history stays with it when its adapter changes.
struct support_list_pci_pid_parameter : adapter_identity_references, pid_history {
    support_list_pci_pid_parameter() : adapter_identity_references(1) {}

    store_reference t_reference{1};
    store_reference f_reference{1};
    numbered_list<support_list_pci_pid_row> rows;
};

// Fan regulators for adapters: the slot's temperature t moves the duty from the present output f, with the setting of
// the first row of the adapter in the slot. The largest output counts; a slot that no row knows has no say, an empty
// one ends the pass. A lost t or f reads as 0.0.
class THERMAL_API support_list_pci_pid : public adapter_list<support_list_pci_pid_parameter> {
public:
    // Rows 1 to `count`, all 0.0.
    void set_parameter_tfxyzpid_count(unsigned index, unsigned count) { record(index).rows.set_size(count); }
    void set_parameter_dao_t(unsigned index, std::string key, int instance) {
        record(index).t_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_dao_f(unsigned index, std::string key, int instance) {
        record(index).f_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_kp(unsigned index, unsigned row_number, float value) { row(index, row_number).kp = value; }
    void set_parameter_ki(unsigned index, unsigned row_number, float value) { row(index, row_number).ki = value; }
    void set_parameter_kd(unsigned index, unsigned row_number, float value) { row(index, row_number).kd = value; }
    void set_parameter_hi(unsigned index, unsigned row_number, float value) {
        row(index, row_number).target_high = value;
    }
    void set_parameter_lo(unsigned index, unsigned row_number, float value) {
        row(index, row_number).target_low = value;
    }
    void set_parameter_r_max(unsigned index, unsigned row_number, float value) { row(index, row_number).r_max = value; }

    void poll(common_thermal_dao* dao, unsigned long timestamp) override;

protected:
    support_list_pci_pid(const char* name, int instance, pid_band_policy policy);

private:
    void log_pass(const pid_history& history, const support_list_pci_pid_row& row, float r, float t, float f) const;

    pid_band_policy _policy;
    float _r_hold = 0.0f;  // shared by the slots
};

// Inside the band the history moves the output for two more passes.
class THERMAL_API common_thermal_algorithm_support_list_pci_pid : public support_list_pci_pid {
public:
    explicit common_thermal_algorithm_support_list_pci_pid(int instance);
};

// Inside the band the output follows f.
class THERMAL_API common_thermal_algorithm_support_list_pci_pid_v2 : public support_list_pci_pid {
public:
    explicit common_thermal_algorithm_support_list_pci_pid_v2(int instance);
};

// Inside the band the output is frozen at the f of entry, beyond r_max too.
class THERMAL_API common_thermal_algorithm_support_list_pci_pid_v3 : public support_list_pci_pid {
public:
    explicit common_thermal_algorithm_support_list_pci_pid_v3(int instance);
};

#pragma once

#include "device/pci/request_device.hpp"

// A request device that gets one reading a poll from a plain agent, publishes it and tells it to the slots. Each class
// is a row that says what becomes of the reading when the bus is taken or the card fails.
class THERMAL_API reading_request : public pci_request_device {
public:
    using status_t = common_thermal_utils::nv_cmd_status_t;

    // What a poll publishes that does not get the bus.
    enum class refusal {
        zero,            // 0.0, for the slots as well
        last,            // reading and `valid` stand
        last_not_valid,  // the reading stands and `valid` falls
    };

    struct row {
        kind device{};
        const char* token_prefix = nullptr;
        slot_setter tell = nullptr;
        float slot_unit = 1.0f;  // the slot's units in one of the reading's
        refusal on_refusal = refusal::zero;
        bool moves_on_when_refused = false;       // to the next agent
        bool failure_ends_validity = false;       // otherwise a failed read leaves `valid` alone
        bool tells_zero_while_not_valid = false;  // otherwise the slots hear nothing then
    };

    void poll(common_thermal_dao* dao, unsigned long now) override;

protected:
    // The last value is the reading. One ahead of it is `valid`; without one every reading counts.
    reading_request(const row& request, int instance, std::initializer_list<published_values::start_value> values);

    // Takes cmd_complete for success. What it leaves in `reading` is published, also after a failure.
    virtual status_t request_reading(std::uint32_t token, plain_pci_agent& agent, float* reading) = 0;

private:
    bool is_valid() const { return _reading == 0 || _values[0] != 0.0f; }
    void set_valid(bool valid);
    // From the agent whose turn it is, or what stands without the bus.
    float next_reading(plain_pci_agent& agent);

    const row& _row;
    std::size_t _reading;  // its position
    token_name _token_name;
};

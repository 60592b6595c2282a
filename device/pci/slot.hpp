#pragma once

#include "device/common_thermal_device.hpp"

// What limits the power of a card, in watts; 0.0 is no limit from that source. `vpd` comes from the machine's own data
// and gives way to `user`.
struct card_power_limits {
    float max_power = 0.0f;
    float vpd = 0.0f;
    float user = 0.0f;
    float thermal = 0.0f;
    float platform = 0.0f;
};

// The power that the card may draw now, in watts.
THERMAL_API float total_graphics_power(const card_power_limits& limits);

// One PCI slot: joins what the inventory knows of its card, its presence pin, what the request devices read from the
// card, and the limits of its power. It talks to no card itself. Readings and identity of a card that left stay; its
// presence, function count, most power and limit fall.
class THERMAL_API common_thermal_device_pci_slot : public common_thermal_device {
public:
    using pci_info_t = common_thermal_utils::pci_info_t;

    explicit common_thermal_device_pci_slot(int instance);

    // The location keeps 8 bits, the number 16. Commands and stored settings write a slot's limits under its number as
    // the instance, so they reach only a device whose instance is its slot number.
    void set_num(unsigned location_code, unsigned slot_number);
    unsigned get_location() const { return _slot_info.location; }
    unsigned get_slot_no() const { return _slot_info.slot_no; }

    // Readings of the card in degrees Celsius; 255.0 is no valid reading.
    void set_primary_temperature(float degrees);
    void set_secondary_temperature(float degrees);
    void set_tertiary_temperature(float degrees);
    void set_margin(float degrees);
    // mW.
    void set_power_consumption(float milliwatts);

    // W, as last published.
    float get_max_power() const;
    // W; stands until the next poll works the limit out again.
    void set_powerlimit_watt(float watts);
    float get_powerlimit_watt() const;
    // Thermal limit in percent of the most power; 0 is no limit, not zero watts.
    void set_powerlimit_percentage(unsigned percentage) { _powerlimit_percentage = percentage; }
    void set_edpp_percentage(unsigned char percentage) { _edpp_percentage = percentage; }
    unsigned char get_edpp_percentage() const { return _edpp_percentage; }
    // Drives every brake pin it depends on.
    void set_pciegen_pwrbrk(bool brake);

    void poll(common_thermal_dao* dao, unsigned long now) override;
    std::string debug() override { return _values.debug_text(); }

private:
    bool is_stopped() const;
    bool has_presence_pin() const;
    // False unless the inventory has a card in this slot.
    bool look_into_inventory(bool stopped);
    float max_power_of_card(const common_thermal_dao* dao, bool present);
    void publish(common_thermal_dao* dao);
    void log_limit(std::size_t position, bool present) const;

    pci_info_t _slot_info;
    std::uint32_t _powerlimit_percentage = 100;
    std::uint8_t _edpp_percentage = 0;
    bool _inventory_is_up = false;
    published_values _values;
    store_reference _max_power_setting;
    store_reference _tgp_platform;
    store_reference _tgp_user;
    store_reference _tgp_vpd;
};

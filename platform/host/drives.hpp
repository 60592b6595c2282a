#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>

#include "platform/drives.hpp"
#include "platform/host/ports.hpp"
#include "platform/host/properties.hpp"

namespace thermal_host {

// What one drive tells of itself: counts the queries and leaves them unanswered as a script says.
template <class Info>
class scripted_drive : public port_line {
public:
    explicit scripted_drive(Info content) : info(std::move(content)) {}

    // The drive's side.
    Info info;
    // Shown in place of the drive's temperature; 0 and 255 are what a drive without a reading shows.
    std::optional<std::uint8_t> stuck_temperature;

    // Null while queries fail. Good until the next query.
    const Info* answer() {
        if (!begin_read()) {
            return nullptr;
        }
        _answer = info;
        _answer.temperature = stuck_temperature.value_or(info.temperature);
        return &_answer;
    }

private:
    Info _answer;
};

// How the firmware finds an NVMe drive.
struct nvme_address {
    std::uint8_t index;
    std::uint8_t kind;
    auto operator<=>(const nvme_address&) const = default;  // NOLINT(modernize-use-nullptr)
};

// The drives of the machine, which come and go while it runs. Loop thread only. A pointer or reference to a drive is
// good until that drive is pulled.
class drive_cage {
public:
    using nvme_drive = scripted_drive<drive_complex_info>;
    using boot_drive = scripted_drive<boot_drive_complex_info>;

    explicit drive_cage(property_store& properties) : _properties(properties) {}

    // Announces a drive in a bay by its properties. Without a type, a bay that never had one stays without; that of an
    // earlier drive stays.
    void plug(int bay, std::optional<std::uint8_t> type = {});
    // The same for a drive that has a management record.
    nvme_drive& plug(int bay, std::optional<std::uint8_t> type, nvme_address address, const drive_complex_info& info);
    // The record goes with the drive.
    void pull(int bay);

    // A boot drive is in no bay.
    boot_drive& plug_boot(std::uint8_t index, CARD_FORM_FACTOR form_factor, const boot_drive_complex_info& info);
    void pull_boot(std::uint8_t index, CARD_FORM_FACTOR form_factor);

    // Null for a place without a drive.
    nvme_drive* find(nvme_address address);
    boot_drive* find_boot(std::uint8_t index, CARD_FORM_FACTOR form_factor);

private:
    using boot_address = std::pair<std::uint8_t, CARD_FORM_FACTOR>;

    void set_property(int bay, const char* leaf, std::uint8_t value);

    property_store& _properties;
    std::map<int, nvme_address> _address_of_bay;
    std::map<nvme_address, nvme_drive> _nvme;
    std::map<boot_address, boot_drive> _boot;
};

}  // namespace thermal_host

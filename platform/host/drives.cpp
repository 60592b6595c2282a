#include "platform/host/drives.hpp"

#include <string>

#include "platform/host/host.hpp"
#include "platform/nvme.hpp"

namespace thermal_host {

namespace {

// std::map::insert_or_assign needs a movable drive.
template <class Drives, class Address, class Info>
auto& replace(Drives& drives, const Address& address, const Info& info) {
    drives.erase(address);
    return drives.try_emplace(address, info).first->second;
}

template <class Drives, class Address>
auto* find_in(Drives& drives, const Address& address) {
    const auto found = drives.find(address);
    return found != drives.end() ? &found->second : nullptr;
}

}  // namespace

void drive_cage::set_property(int bay, const char* leaf, std::uint8_t value) {
    const std::string path = "/dc/zorm/dm/planar/0/hdd/" + std::to_string(bay) + "/" + leaf;
    if (host_property* property = _properties.find(path)) {
        property->set(value, property_flags, property_notify);
    } else {
        _properties.create(path, property_value::number_of(sizeof(value), value));
    }
}

void drive_cage::plug(int bay, std::optional<std::uint8_t> type) {
    pull(bay);
    set_property(bay, "presence", 1);
    if (type) {
        set_property(bay, "type", *type);
    }
}

drive_cage::nvme_drive& drive_cage::plug(int bay, std::optional<std::uint8_t> type, nvme_address address,
                                         const drive_complex_info& info) {
    plug(bay, type);
    _address_of_bay.insert_or_assign(bay, address);
    return replace(_nvme, address, info);
}

void drive_cage::pull(int bay) {
    set_property(bay, "presence", 0);
    if (const nvme_address* address = find_in(_address_of_bay, bay)) {
        _nvme.erase(*address);
        _address_of_bay.erase(bay);
    }
}

drive_cage::boot_drive& drive_cage::plug_boot(std::uint8_t index, CARD_FORM_FACTOR form_factor,
                                              const boot_drive_complex_info& info) {
    return replace(_boot, boot_address{index, form_factor}, info);
}

void drive_cage::pull_boot(std::uint8_t index, CARD_FORM_FACTOR form_factor) { _boot.erase({index, form_factor}); }

drive_cage::nvme_drive* drive_cage::find(nvme_address address) { return find_in(_nvme, address); }

drive_cage::boot_drive* drive_cage::find_boot(std::uint8_t index, CARD_FORM_FACTOR form_factor) {
    return find_in(_boot, boot_address{index, form_factor});
}

}  // namespace thermal_host

using thermal_host::platform;

const drive_complex_info* sep_comm_logical_device::get_drive_complex_info(std::uint8_t index, std::uint8_t kind) {
    platform* host = platform::current();
    auto* drive = host != nullptr ? host->drives.find({index, kind}) : nullptr;
    return drive != nullptr ? drive->answer() : nullptr;
}

const boot_drive_complex_info* sys_boot_logical_device::get_drive_complex_info(std::uint8_t index,
                                                                               CARD_FORM_FACTOR form_factor) {
    platform* host = platform::current();
    auto* drive = host != nullptr ? host->drives.find_boot(index, form_factor) : nullptr;
    return drive != nullptr ? drive->answer() : nullptr;
}

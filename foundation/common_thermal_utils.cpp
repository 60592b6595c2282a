#include "foundation/common_thermal_utils.hpp"

#include <algorithm>

#include "foundation/host_attribute.hpp"
#include "foundation/log_masks.hpp"
#include "platform/properties.hpp"

namespace {

constexpr int status_never_reached = 61;
constexpr std::uint32_t fpga_block_size = 16;

// The accessor behind a logical port; a port without a line is logged as `attempt`.
template <class Port>
auto* reach(const Port& port, const char* attempt) {
    auto* accessor = port.accessor();
    if (accessor == nullptr) {
        LOG::log(log_source, log_mask::port_access, "%s attempt on name=[%s], NULL accessor!!\n", attempt,
                 port.name().c_str());
    }
    return accessor;
}

template <class Port>
std::unique_ptr<Port> make_logical(const char* function, const std::string& name, int instance, unsigned number,
                                   bool show_pin) {
    auto port = std::make_unique<Port>(name + "." + std::to_string(instance));
    port->assign(number);
    if (show_pin) {
        LOG::log(log_source, log_mask::change, "common_thermal_utils::%s() - pin_name=[%s]", function,
                 physical_io_locator::rev_find_pin_name(number).c_str());
    }
    return port;
}

template <class Port>
std::unique_ptr<Port> make_keyed(const logical_device& owner, const std::string& key) {
    auto port = std::make_unique<Port>(owner, std::string());
    port->assign(key);
    return port;
}

// `value` is a number, or bytes and their size.
template <class... Value>
void create_property(const char* function, const char* path, Value... value) {
    if (!bmc_property::create(path, value..., property_flags)) {
        LOG::err(log_source_property, "common_thermal_utils::%s - failed to create property %s", function, path);
    }
}

template <class... Value>
bool set_or_create(const char* path, Value... value) {
    if (bmc_property* property = DM::get_property(path)) {
        return property->set(value..., property_flags, property_notify);
    }
    create_property("set_ipmi_property", path, value...);
    return false;
}

template <class Value>
Value read_or_create(const char* path, Value (bmc_property::*get)() const) {
    if (const bmc_property* property = DM::get_property(path)) {
        return (property->*get)();
    }
    create_property("get_ipmi_property", path, Value{0});
    return Value{0};
}

}  // namespace

common_thermal_utils::common_thermal_utils() = default;
common_thermal_utils::~common_thermal_utils() = default;

void common_thermal_utils::release() {
    _bit.reset();
    _cio_bit.reset();
    _block.reset();
    _cio_block.reset();
    _integer.reset();
    _cio_integer.reset();
    _fantach.reset();
    _position = 0;
    _key_uint = 0;
    _key_string.clear();
}

void common_thermal_utils::create_port_bit(const logical_device&, const std::string& name, int instance, unsigned port,
                                           bool show_pin) {
    release();
    _bit = make_logical<bit_port>("create_port_bit", name, instance, port, show_pin);
    _key_uint = port;
}

void common_thermal_utils::create_port_integer(const logical_device&, const std::string& name, int instance,
                                               unsigned port, bool show_pin) {
    release();
    _integer = make_logical<integer_port>("create_port_integer", name, instance, port, show_pin);
    _key_uint = port;
}

void common_thermal_utils::create_port_block(const logical_device&, const std::string& name, int instance,
                                             unsigned port, bool show_pin) {
    release();
    _block = make_logical<block_port>("create_port_block", name, instance, port, show_pin);
    _key_uint = port;
}

void common_thermal_utils::create_port_fantach(const logical_device&, const std::string& name, int instance,
                                               unsigned port, bool show_pin) {
    release();
    _fantach = make_logical<fantach_hal_port>("create_port_fantach", name, instance, port, show_pin);
    _key_uint = port;
}

void common_thermal_utils::create_port_bit(const logical_device& owner, const std::string& key) {
    if (!key.empty()) {
        release();
        _cio_bit = make_keyed<cio_bit_port>(owner, key);
        _key_string = key;
    }
}

void common_thermal_utils::create_port_integer(const logical_device& owner, const std::string& key) {
    if (!key.empty()) {
        release();
        _cio_integer = make_keyed<cio_integer_port>(owner, key);
        _key_string = key;
    }
}

void common_thermal_utils::create_port_block(const logical_device& owner, const std::string& key) {
    release();
    _cio_block = make_keyed<cio_block_port>(owner, key);
    _key_string = key;
}

bool common_thermal_utils::is_bound() const {
    if (_integer) return _integer->accessor() != nullptr;
    if (_cio_integer) return _cio_integer->is_bound();
    if (_bit) return _bit->accessor() != nullptr;
    if (_cio_bit) return _cio_bit->is_bound();
    if (_block) return _block->accessor() != nullptr;
    if (_cio_block) return _cio_block->is_bound();
    return _fantach && _fantach->accessor() != nullptr;
}

bool common_thermal_utils::read_port_bit(std::uint8_t* value) {
    *value = 0;
    if (_bit) {
        int status = status_never_reached;
        bit_accessor* accessor = reach(*_bit, "get()");
        *value = accessor != nullptr && accessor->get(status) != 0 ? 1 : 0;
        return true;
    }
    if (_cio_bit) {
        *value = _cio_bit->get() > 0 ? 1 : 0;
        return *value != 0;
    }
    return true;
}

bool common_thermal_utils::write_port_bit(std::uint8_t value) {
    if (_bit) {
        int status = status_never_reached;
        if (bit_accessor* accessor = reach(*_bit, "set()")) {
            accessor->set(value, status);
        }
        return status == port_status_success;
    }
    return _cio_bit && _cio_bit->set(value) == 0;
}

bool common_thermal_utils::read_port_integer(std::uint32_t* value) {
    if (_integer) {
        int status = status_never_reached;
        integer_accessor* accessor = reach(*_integer, "read()");
        *value = accessor != nullptr ? accessor->read(status) : 0;
        return status == port_status_success;
    }
    return _cio_integer && _cio_integer->read(value) == 0;
}

bool common_thermal_utils::write_port_integer(std::uint32_t value) {
    if (_integer) {
        int status = status_never_reached;
        if (integer_accessor* accessor = reach(*_integer, "wet()")) {
            accessor->write(value, status);
        }
        return status == port_status_success;
    }
    return _cio_integer && _cio_integer->write(value) == 0;
}

bool common_thermal_utils::seek_port_block(std::uint32_t position) {
    if (_block) {
        _position = position;
        return true;
    }
    if (_cio_block) {
        _cio_block->seek(position);
        return true;
    }
    return false;
}

bool common_thermal_utils::read_port_block(std::uint8_t* buffer, std::uint32_t* got, std::uint32_t max) {
    if (_block) {
        int status = status_never_reached;
        block_accessor* accessor = reach(*_block, "block::read()");
        *got = accessor != nullptr ? std::min(accessor->read(_position, buffer, max, status), max) : 0;
        _position += *got;
        return status == port_status_success;
    }
    if (_cio_block) {
        *got = std::min(_cio_block->read(buffer, max, false), max);
        return true;
    }
    return false;
}

bool common_thermal_utils::write_port_block(const std::uint8_t* buffer, std::uint32_t size) {
    if (_block) {
        int status = status_never_reached;
        if (block_accessor* accessor = reach(*_block, "block::write()")) {
            accessor->write(_position, buffer, size, status);
        }
        _position += size;
        return status == port_status_success;
    }
    return _cio_block && _cio_block->write(buffer, size) == 0;
}

bool common_thermal_utils::write_read_port_block(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in,
                                                 std::uint32_t max) {
    if (_block) {
        int status = status_never_reached;
        if (block_accessor* accessor = reach(*_block, "block::write_read()")) {
            accessor->write_read(out, size, in, max, status);
        }
        return status == port_status_success;
    }
    return _cio_block && _cio_block->write_read(out, size, in, max, false, 0) == 0;
}

bool common_thermal_utils::config_port_fantach(const TACHData* configuration) {
    int status = status_never_reached;
    if (fantach_accessor* accessor = _fantach ? _fantach->accessor() : nullptr) {
        accessor->write(*configuration, status);
    }
    return status == port_status_success;
}

bool common_thermal_utils::read_port_fantach(TACHData* data, int* value) {
    *value = 0;
    int status = status_never_reached;
    fantach_accessor* accessor = _fantach ? _fantach->accessor() : nullptr;
    const int reading = accessor != nullptr ? accessor->read(*data, status) : 0;
    if (status != port_status_success) {
        return false;
    }
    *value = reading;
    return true;
}

bool common_thermal_utils::set_ipmi_property(const char* path, std::uint8_t value) {
    return set_or_create(path, value);
}
bool common_thermal_utils::set_ipmi_property(const char* path, std::uint16_t value) {
    return set_or_create(path, value);
}
bool common_thermal_utils::set_ipmi_property(const char* path, std::uint32_t value) {
    return set_or_create(path, value);
}
bool common_thermal_utils::set_ipmi_property(const char* path, const std::uint8_t* bytes, unsigned size) {
    return set_or_create(path, bytes, size);
}

void common_thermal_utils::get_ipmi_property(const char* path, std::uint8_t& value) {
    value = read_or_create(path, &bmc_property::get_byte);
}
void common_thermal_utils::get_ipmi_property(const char* path, std::uint16_t& value) {
    value = read_or_create(path, &bmc_property::get_word);
}
void common_thermal_utils::get_ipmi_property(const char* path, std::uint32_t& value) {
    value = read_or_create(path, &bmc_property::get_dword);
}

logical_device* common_thermal_utils::thermal_controller_device() {
    controller* owner = DM::get_controller(thermal_controller);
    return owner != nullptr ? owner->device() : nullptr;
}

int common_thermal_utils::get_uefi_pciegen_pwrbrk_mode(std::uint8_t& mode) {
    constexpr const char* function = "get_uefi_pciegen_pwrbrk_mode";
    const host_attribute_query query = query_power_brake_mode();
    switch (query.result) {
        case host_attribute_query::outcome::not_initialized:
            LOG::log(log_source, log_mask::sensor, "%s - hvt_api_initialize failed: %d\n", function, query.error);
            break;
        case host_attribute_query::outcome::failed:
            LOG::warn(log_source, log_mask::sensor, "%s - hvt_get_bios_attribute_value failed: setting status=%d\n",
                      function, static_cast<int>(query.request.status));
            break;
        case host_attribute_query::outcome::answered:
            mode = query.mode;
            LOG::log(log_source, log_mask::life_cycle, "%s - uefi_power_option=%d, %s = %s", function, mode,
                     power_brake_attribute, query.request.value);
            break;
    }
    return query.error;
}

float common_thermal_utils::convert_fpga_ambient_raw_data_to_temp(const std::uint8_t* block, std::uint32_t offset) {
    constexpr unsigned invalid_mark = 0x08;
    constexpr float unit = 0.0625f;
    const bool inside = offset < fpga_block_size - 6;
    const unsigned high = inside ? block[offset + 5] : 0;
    const unsigned low = inside ? block[offset + 6] : invalid_mark;
    if ((low & invalid_mark) != 0) {
        LOG::log(log_source, log_mask::bus, "common_thermal_utils::%s - invalid reading(0xFF)\n",
                 "convert_fpga_ambient_raw_data_to_temp");
        return invalid_temperature;
    }
    const unsigned raw = high << 8 | low;
    const unsigned magnitude = raw >> 4;
    if ((raw & 0x8000u) == 0) {
        return static_cast<float>(magnitude) * unit;
    }
    return static_cast<float>((~magnitude & 0xFFFu) + 1) * -unit;
}

#include "sim/server_caps.hpp"

#include "device/fan/fan_control.hpp"
#include "sim/server_parts.hpp"

namespace sim {

namespace {

constexpr QSignal power_cap_signal = 191;
constexpr QSignal drive_level_signal = 317;
constexpr unsigned no_cap = 65535;
constexpr unsigned whole = 100;

struct power_cap_code {
    std::uint16_t code;
    cap_kind kind;
};
constexpr power_cap_code power_cap_codes[] = {
    {0x2102, cap_kind::processors},
    {0x3102, cap_kind::memory},
    {0x1102, cap_kind::system},
    {0x3502, cap_kind::memory_share},
};

std::optional<unsigned> unless(unsigned none, unsigned value) {
    return value == none ? std::nullopt : std::optional(value);
}

}  // namespace

server_caps::server_caps(thermal_host::platform& host)
    : _power_permission(host.ports.add_number(power_permission_bit, 1)),
      _caps{{{"processors", "W"},
             {"memory", "W"},
             {"memory share", "%"},
             {"system", "W"},
             {"drives level", ""},
             {"fans at most", "%"},
             {"host power", "W"}}} {
    host.loop.set_handler(power_capping_controller, [this](const QEvent& event) {
        if (event.sig == power_cap_signal) take_power_cap(static_cast<const bmc_event&>(event));
    });
    host.loop.set_handler(storage_controller, [this](const QEvent& event) {
        if (event.sig == drive_level_signal) take_drive_level(static_cast<const bmc_event&>(event));
    });
}

void server_caps::take_power_cap(const bmc_event& event) {
    const unsigned code = event.data_byte0 | static_cast<unsigned>(event.data_byte1) << 8;
    for (const power_cap_code& row : power_cap_codes) {
        if (row.code != code) {
            continue;
        }
        // A share comes as what to leave out.
        const bool is_share = row.kind == cap_kind::memory_share;
        set(row.kind, is_share ? unless(whole, whole - event.data_word) : unless(no_cap, event.data_word));
    }
}

// 0 is full power, 2 the least.
void server_caps::take_drive_level(const bmc_event& event) { set(cap_kind::drives, unless(0, event.data_word)); }

void server_caps::look(const common_thermal_dao& store) {
    float most = 100.0f;
    store.fetch_dev(common_thermal_device_fan_control::fan_maximum_name, 1, &most);
    const auto update = [this](cap_kind kind, std::optional<unsigned> value) {
        if (of(kind).value != value) set(kind, value);
    };
    update(cap_kind::fans, unless(whole, static_cast<unsigned>(most)));
    update(cap_kind::host_power, unless(1, _power_permission.value()));
}

void server_caps::set(cap_kind kind, std::optional<unsigned> value) {
    cap_state& cap = _caps[static_cast<std::size_t>(kind)];
    cap.value = value;
    ++cap.requests;
}

}  // namespace sim

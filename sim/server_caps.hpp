#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "platform/host/host.hpp"
#include "store/common_thermal_dao.hpp"

namespace sim {

// In watts, but for a share and the fans' highest duty, which are in percent, and the level of the drives: 2 is the
// least power, 1 less than full. The vote for host power is a cap of 0 W while it is withdrawn.
enum class cap_kind { processors, memory, memory_share, system, drives, fans, host_power };
constexpr std::size_t cap_kinds = 7;

struct cap_state {
    const char* name = "";
    const char* unit = "";
    std::optional<unsigned> value = {};  // nothing while there is no cap
    unsigned requests = 0;               // that came since power-on, releases among them
};

// The firmware's controllers that take power caps, the drives' controller, and whoever looks at the vote for host
// power: the newest word that each of them has.
class server_caps {
public:
    // Takes the events posted to those controllers, and adds the line of the vote, which begins with yes.
    explicit server_caps(thermal_host::platform& host);
    server_caps(const server_caps&) = delete;
    server_caps& operator=(const server_caps&) = delete;

    // The highest duty of fans stands in the store, the vote on its line: neither comes by event.
    void look(const common_thermal_dao& store);

    const std::array<cap_state, cap_kinds>& all() const { return _caps; }
    const cap_state& of(cap_kind kind) const { return _caps[static_cast<std::size_t>(kind)]; }

private:
    void take_power_cap(const bmc_event& event);
    void take_drive_level(const bmc_event& event);
    void set(cap_kind kind, std::optional<unsigned> value);

    thermal_host::number_line& _power_permission;
    std::array<cap_state, cap_kinds> _caps;
};

}  // namespace sim

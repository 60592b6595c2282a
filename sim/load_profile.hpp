#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/csv.hpp"
#include "sim/server_physics.hpp"

namespace sim {

// Tells a reader what changed, "fan 3 fails" for instance.
using event_sink = std::function<void(double seconds, const std::string& text)>;

// What happens to the simulated server from outside, over time. Everything holds until its next row; what a profile
// does not mention stays as it is.
class load_profile {
public:
    // Columns: time_s, and any of
    //   load_percent         0 to 100, share of the way from idle to full power of all parts
    //   <kind>_load_percent  the same of the parts of a kind, which take the higher of the two
    //   inlet_c              -40 to 100, air at the inlet
    //   fan_<number>         1 turns, 0 stands
    //   drive_<bay>          1 plugged, 0 pulled
    //   slot_<number>        1 plugged, 0 pulled
    //   dust_filter          1 asks for a measurement
    //   <part>_sensor        1 works, 0 gives no reading
    //   <part>_w             power of each part of that name, in place of the load
    // A part is one of its own ("cpu2") or all of a name ("cpu"). Anything else throws csv_error.
    static load_profile from(const csv_table& table, const machine_plan& plan);

    // A recorded power of each of the parts, by the first column whose name begins with "time".
    void add_trace(const csv_table& table, const std::string& column, std::span<const std::size_t> parts);

    // Brings the server to the state of `now`; changes since the last call are told to `tell`.
    void apply(double now, server_physics& server, const event_sink& tell);

    double last_time() const;

private:
    enum class target { load, load_of_kind, inlet, dust_filter, fan, drive, slot, sensor, power };
    struct channel {
        target what;
        std::size_t index;                   // number of the fan or bay, index of the kind
        std::span<const std::size_t> parts;  // of sensor and power
        std::vector<double> times;
        std::vector<double> values;
        bool told = true;  // a recorded power changes too often for that
        std::size_t next = 0;
    };

    struct range {
        double low;
        double high;
    };

    static channel channel_of(const csv_table& table, const machine_plan& plan, const std::string& column);
    static range find_target(const machine_plan& plan, std::string_view column, channel& made);
    static void change(const channel& source, double value, server_physics& server);
    static std::string text_of(const machine_plan& plan, const channel& source, double value);

    std::vector<channel> _channels;
};

}  // namespace sim

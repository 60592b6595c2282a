#pragma once

#include <cstddef>
#include <functional>
#include <string>
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
    //   load_percent     0 to 100, share of the way from idle to full power of all parts
    //   inlet_c          -40 to 100, air at the inlet
    //   fan_<number>     1 turns, 0 stands
    //   <part>_sensor    1 works, 0 gives no reading
    //   <part>_w         power of one part, in place of the load
    // Anything else throws csv_error.
    static load_profile from(const csv_table& table);

    // A recorded power, by the first column whose name begins with "time".
    void add_trace(const csv_table& table, const std::string& column, std::size_t part);

    // Brings the server to the state of `now`; changes since the last call are told to `tell`.
    void apply(double now, server_physics& server, const event_sink& tell);

    double last_time() const;

private:
    enum class target { load, inlet, fan, sensor, power };
    struct channel {
        target what;
        std::size_t index;  // number of the fan, index of the part
        std::vector<double> times;
        std::vector<double> values;
        bool told = true;  // a recorded power changes too often for that
        std::size_t next = 0;
    };

    static channel channel_of(const csv_table& table, const std::string& column);
    static void change(const channel& source, double value, server_physics& server);
    static std::string text_of(const channel& source, double value);

    std::vector<channel> _channels;
};

}  // namespace sim

#pragma once

#include <cstdint>

#include "foundation/common_thermal_utils.hpp"
#include "foundation/export.hpp"

// Where a device's request to a mailbox stands from one poll to the next.
class THERMAL_API mailbox_exchange {
public:
    using status_t = common_thermal_utils::nv_cmd_status_t;

    // Pending answers in a row that a request may have. Far beyond a slow card, yet a request that died does not keep
    // its card from everybody else for good.
    static constexpr std::uint32_t patience = 250;

    // Calls `request(state)` with the state it goes on in, and gives its result; a request out of patience has failed.
    // Every result but cmd_pending ends the request: its owner releases the token.
    template <class Request>
    status_t step(Request&& request) {
        return advance(request(_state));
    }

    bool in_flight() const { return _state == common_thermal_utils::cmd_pending; }
    // The next step sends anew.
    void reset() { *this = {}; }

private:
    status_t advance(status_t result);

    status_t _state = common_thermal_utils::cmd_idle;
    std::uint32_t _pending_answers = 0;
};

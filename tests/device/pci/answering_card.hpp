#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <utility>

#include "device/pci/agent.hpp"
#include "device/pci/slot.hpp"
#include "device/pci/supported_list.hpp"
#include "tests/device/device_fixture.hpp"

using frame_bytes = std::vector<std::uint8_t>;
// One by one: the compiler takes the library's comparison of whole blocks for one without end.
struct frame_order {
    bool operator()(const frame_bytes& left, const frame_bytes& right) const {
        return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(), std::less<>());
    }
};
using frame_answers = std::map<frame_bytes, frame_bytes, frame_order>;

// A slot with a card behind port 1 that answers the frames it knows and fails any other.
class card_test : public device_test {
protected:
    card_test() {
        port.set_script(
            [this](const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, int& status) {
                sent.emplace_back(out, out + size);
                asked.push_back(max);
                const auto known = answers.find(sent.back());
                status = known != answers.end() ? status : 5;
                const frame_bytes answer = known != answers.end() ? known->second : frame_bytes();
                const auto given = std::min<std::size_t>(answer.size(), max);
                std::copy_n(answer.begin(), given, in);
                return static_cast<std::uint32_t>(given);
            });
    }

    void plug(unsigned vendor, unsigned product) {
        common_thermal_utils::pci_info_t function;
        function.vendor_id = static_cast<std::uint16_t>(vendor);
        function.device_id = static_cast<std::uint16_t>(product);
        function.class_code = 0x120000;
        list.active_command(&function);
    }

    // What was sent since the last call.
    std::vector<frame_bytes> take_sent() { return std::exchange(sent, {}); }
    // One poll while another request has the bus of the agent.
    void poll_without_bus(common_thermal_device& device, pci_agent& agent) {
        agent.get_agent_token("another");
        poll(device);
        agent.release_agent_token();
    }
    // What the slot publishes next under a word.
    float told(const std::string& word) {
        poll(slot);
        return stored("pci_slot." + word, 4);
    }

    frame_answers answers;
    std::vector<frame_bytes> sent;
    std::vector<std::uint32_t> asked;
    thermal_host::block_line& port = host.ports.add_block(1u, {});
    common_thermal_device_pci_supported_list list{1};
    common_thermal_device_pci_slot slot{4};
};

#pragma once

#include "device/pci/agent.hpp"
#include "device/pci/slot.hpp"

// The name under which a request device takes an agent's token: a prefix of its own, then what it visits, as in
// "power.0.1". Composed again only when that changes.
class THERMAL_API token_name {
public:
    explicit token_name(const char* prefix) : _prefix(prefix) {}

    std::string_view of(std::uint32_t target) {
        if (_text.empty() || target != _target) {
            compose(target);
        }
        return _text;
    }
    std::string_view of(std::uint32_t group, std::uint32_t target) {
        if (_text.empty() || group != _group || target != _target) {
            compose(group, target);
        }
        return _text;
    }

private:
    void compose(std::uint32_t target);
    void compose(std::uint32_t group, std::uint32_t target);

    const char* _prefix;
    std::uint32_t _group = 0;
    std::uint32_t _target = 0;
    std::string _text;
};

// A plain agent's token for one poll; given back at the end of the scope.
class THERMAL_API agent_hold {
public:
    agent_hold(plain_pci_agent& agent, std::string_view name) : _agent(agent), _token(agent.get_agent_token(name)) {}
    ~agent_hold() {
        if (_token != 0) {
            _agent.release_agent_token();
        }
    }
    agent_hold(const agent_hold&) = delete;
    agent_hold& operator=(const agent_hold&) = delete;

    // False while another request holds the bus.
    explicit operator bool() const { return _token != 0; }
    std::uint32_t token() const { return _token; }

private:
    plain_pci_agent& _agent;
    std::uint32_t _token;
};

// What every device that asks a card for something has: a gate, agents that it visits one a poll in turn, and slots
// that it tells what it read.
class THERMAL_API pci_request_device : public common_thermal_device {
public:
    std::string debug() override { return _values.debug_text(); }

    struct kind {
        const char* class_name = nullptr;
        tdev_type_t type{};
        tdev_type_t group{};  // of pci_group
        tdev_type_t agent{};
    };

protected:
    pci_request_device(const kind& row, int instance, std::initializer_list<published_values::start_value> values);

    // Whether any supported list says that the card in the slot is of this device's group.
    bool is_card_supported() const;
    // Whether such a list also has this special treatment.
    bool is_card_forced(std::uint32_t force_cap) const;

    // The dependency at a place among those of its kind; null past the last.
    template <class Device>
    Device* depend_at(tdev_type_t type, std::uint32_t place) const {
        Device* found = nullptr;
        any_depend<Device>(type, [&](Device& device) {
            found = place-- == 0 ? &device : nullptr;
            return found != nullptr;
        });
        return found;
    }

    // The agent whose turn it is, the first one again after the last; null without any.
    template <class Agent>
    Agent* visited_agent() {
        Agent* first = nullptr;
        Agent* agent = nullptr;
        std::uint32_t place = 0;
        any_depend<Agent>(_kind.agent, [&](Agent& device) {
            first = first != nullptr ? first : &device;
            agent = place++ == _agent_index ? &device : nullptr;
            return agent != nullptr;
        });
        if (agent == nullptr) {
            _agent_index = 0;
            agent = first;
        }
        return agent;
    }
    void visit_next_agent() { ++_agent_index; }

    using slot_setter = void (common_thermal_device_pci_slot::*)(float);
    void tell_slots(slot_setter set, float value) const;

    const kind& _kind;
    published_values _values;
    std::uint32_t _agent_index = 0;
};

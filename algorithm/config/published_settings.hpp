#pragma once

#include <array>
#include <string>
#include <utility>

#include "algorithm/parameter_table.hpp"

// A setting for a store value, published under a prefix ahead of that value's name, at the same instance.
template <class Settings>
struct published_setting {
    const char* prefix;
    float Settings::*value;
};

// A store value that settings are for. Settings::published() lists them in the order of writing.
template <class Settings>
class settings_target {
public:
    settings_target() { complete(); }

    // Composes the keys; to be called whenever `target` is set.
    void complete() {
        for (std::size_t i = 0; i < _keys.size(); ++i) {
            _keys[i] = store_reference(Settings::published()[i].prefix + target.name(), target.instance());
        }
    }
    void publish(common_thermal_dao& dao, const Settings& settings) {
        for (std::size_t i = 0; i < _keys.size(); ++i) {
            _keys[i].store(dao, settings.*Settings::published()[i].value);
        }
    }

    store_reference target;

private:
    std::array<store_reference, Settings::published().size()> _keys;
};

// Adds the target of each record to an algorithm whose records derive from settings_target. Settings stay in the store
// when the conditions of the rule no longer hold: the last rule that wrote them stands.
template <class Algorithm>
class with_settings_target : public Algorithm {
protected:
    using Algorithm::Algorithm;

    void set_target(unsigned index, std::string key, int instance) {
        auto& record = this->record(index);
        record.target = store_reference(std::move(key), instance);
        record.complete();
    }
};

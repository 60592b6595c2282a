#pragma once

#include <array>

#include "algorithm/adapter_list.hpp"
#include "algorithm/config/published_settings.hpp"

// What is known of one adapter: the settings that it needs.
template <class Settings>
struct adapter_settings : adapter_identity, Settings {};

// One slot. The record itself shows the row that its adapter matched last, zeros before the first match.
template <class Settings>
struct adapter_settings_parameter : adapter_identity_references, settings_target<Settings>, adapter_settings<Settings> {
    numbered_list<adapter_settings<Settings>> rows;

    void remember(const adapter_settings<Settings>& row) { static_cast<adapter_settings<Settings>&>(*this) = row; }
};

template <class Record>
constexpr std::array<parameter<Record>, 3> matched_identity_fields{{
    {"\ncache_x=", nullptr, &Record::x},
    {"\ncache_y=", nullptr, &Record::y},
    {"\ncache_z=", nullptr, &Record::z},
}};

template <class Settings>
using adapter_settings_algorithm = with_settings_target<adapter_list<adapter_settings_parameter<Settings>>>;

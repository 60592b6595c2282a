#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/sim/machine.hpp"

// docs/store-keys.md has the keys that the simulated server publishes, and in one section those that it does not.
namespace {

using names = std::set<std::string>;

// First column of the tables headed "key" and "prefix". A gap in a key, such as <NAME>, stands for any text.
struct key_document {
    names published, elsewhere, prefixes, mistakes;

    explicit key_document(std::istream& file) {
        names* section = &published;
        names* table = nullptr;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("## ")) {
                section = line == "## Not on the simulated server" ? &elsewhere : &published;
            }
            if (line.starts_with("| key |")) {
                table = section;
            } else if (line.starts_with("| prefix |")) {
                table = &prefixes;
            } else if (!line.starts_with("|")) {
                table = nullptr;
            } else if (table != nullptr && !line.starts_with("|---")) {
                enter(*table, line.substr(0, line.find(" |")));
            }
        }
    }

private:
    void enter(names& table, const std::string& cell) {
        std::stringstream parts(cell);
        std::string key;
        for (std::getline(parts, key, '`'); std::getline(parts, key, '`'); std::getline(parts, key, '`')) {
            const bool is_known = (published.count(key) + elsewhere.count(key) + prefixes.count(key)) != 0;
            (is_known || key.find('.') == std::string::npos ? mistakes : table).insert(key);
        }
        if (cell.find('`') == std::string::npos) mistakes.insert(cell);
    }
};

bool stands_for(const std::string& documented, const std::string& name) {
    const std::size_t open = documented.find('<');
    return open == std::string::npos ? documented == name
                                     : name.starts_with(documented.substr(0, open)) &&
                                           name.ends_with(documented.substr(documented.find('>') + 1));
}

// Without the instance and the common part of device names. What stands behind a prefix is up to the rules.
names published_by(sim::simulated_server& server, const names& prefixes) {
    constexpr std::string_view device = "common_thermal_device_";
    names found;
    for (const auto& [key, value] : server.store().values()) {
        const std::string name = key.substr(0, key.rfind('.'));
        if (std::ranges::none_of(prefixes, [&name](const auto& prefix) { return name.starts_with(prefix); })) {
            found.insert(name.starts_with(device) ? name.substr(device.size()) : name);
        }
    }
    return found;
}

TEST(key_document, has_every_key_that_the_server_publishes_and_tells_which_it_does_not) {
    std::ifstream file(THERMAL_SOURCE_DIR "/docs/store-keys.md");
    std::stringstream policy;
    policy << std::ifstream(THERMAL_SOURCE_DIR "/examples/rules/full_policy.ini").rdbuf();
    const key_document document(file);
    EXPECT_EQ(document.mistakes, names()) << "no key, or documented twice";

    machine m({}, 0, policy.str());
    m.server.run_for(180.0);
    names undocumented = published_by(m.server, document.prefixes), unpublished;
    for (const std::string& key : document.published) {
        if (std::erase_if(undocumented, [&key](const std::string& name) { return stands_for(key, name); }) == 0) {
            unpublished.insert(key);
        }
    }
    EXPECT_EQ(undocumented, names()) << "published, but not in the document or in its section of keys that are not";
    EXPECT_EQ(unpublished, names()) << "documented, but nobody publishes it";
}

}  // namespace

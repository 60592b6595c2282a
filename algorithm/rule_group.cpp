#include "algorithm/rule_group.hpp"

#include "foundation/log_masks.hpp"

int rule_group::integer(const char* key) const { return std::stoi(_rules.get_value(_name.c_str(), key, "0")); }

unsigned long rule_group::unsigned_integer(const char* key) const {
    return std::stoul(_rules.get_value(_name.c_str(), key, "0"));
}

float rule_group::number(const char* key) const { return std::stof(_rules.get_value(_name.c_str(), key, "0")); }

unsigned rule_group::count(const char* key) const {
    const int wanted = integer(key);
    if (wanted < 1) {
        return 0;
    }
    const unsigned most = _rules.entry_count(_name.c_str()) + 1;
    if (static_cast<unsigned>(wanted) <= most) {
        return static_cast<unsigned>(wanted);
    }
    LOG::warn(log_source, log_mask::life_cycle, "rule group [%s]: %s=%d cut to %u, the group has no more lines\n",
              _name.c_str(), key, wanted, most);
    return most;
}

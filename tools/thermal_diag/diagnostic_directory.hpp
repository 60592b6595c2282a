#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/thermal_diag/history_files.hpp"

namespace thermal_diag {

// Hears of a file that cannot be shown in whole: its name, and what is wrong with it.
using complaint = std::function<void(const std::string& name, const std::string& what)>;

// What is wrong with a file's text; empty where nothing is.
std::string fault_of(file_kind kind, const file_text& text);

// A directory of diagnostic files, which somebody may be writing to.
class diagnostic_directory {
public:
    struct file {
        std::string name;
        file_name is;
    };

    // Throws std::runtime_error if the directory cannot be listed.
    diagnostic_directory(std::string path, complaint complain);

    // Those that bear a name of the library, by what they are about.
    const std::vector<file>& files() const { return _files; }
    const std::string& path() const { return _path; }

    // Nothing, and a complaint, of a link, of what is no file, and of more than 4 MB, or 16 MB of a snapshot.
    std::optional<std::string> read(const file& wanted) const;

    std::map<history_id, history> histories(const std::function<bool(const history_id&)>& is_wanted) const;
    // By the newest snapshot of the rules.
    rule_names names() const;

private:
    std::string _path;
    complaint _complain;
    std::vector<file> _files;
};

// By a rule file. Throws std::runtime_error if it cannot be used.
rule_names names_in_rule_file(const std::string& path);

}  // namespace thermal_diag

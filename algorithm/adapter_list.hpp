#pragma once

#include <array>
#include <string>
#include <utility>

#include "algorithm/adapter_identity.hpp"
#include "algorithm/joined_fields.hpp"
#include "algorithm/parameter_table.hpp"
#include "foundation/log_masks.hpp"

// Lines of the tables of an adapter list.
template <class Record>
constexpr std::array<parameter<Record>, 3> identity_reference_fields{{
    {"\nx_key=", "PARAMETER_X_PREFIX", &Record::x_reference, "PARAMETER_X_INST"},
    {"\ny_key=", "PARAMETER_Y_PREFIX", &Record::y_reference, "PARAMETER_Y_INST"},
    {"\nz_key=", "PARAMETER_Z_PREFIX", &Record::z_reference, "PARAMETER_Z_INST"},
}};

template <class Row>
constexpr std::array<parameter<Row>, 3> identity_fields{{
    {"\nx=", "PARAMETER_X", &Row::x},
    {"\ny=", "PARAMETER_Y", &Row::y},
    {"\nz=", "PARAMETER_Z", &Row::z},
}};

// An algorithm with a record for each slot and in it a row for each known adapter. Records derive from
// adapter_identity_references, rows from adapter_identity.
template <class Record>
class adapter_list : public algorithm_with_parameters<Record> {
public:
    void set_parameter_dao_x(unsigned index, std::string key, int instance) {
        this->record(index).x_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_dao_y(unsigned index, std::string key, int instance) {
        this->record(index).y_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_dao_z(unsigned index, std::string key, int instance) {
        this->record(index).z_reference = store_reference(std::move(key), instance);
    }
    void set_parameter_x(unsigned index, unsigned row, float value) { this->row(index, row).x = value; }
    void set_parameter_y(unsigned index, unsigned row, float value) { this->row(index, row).y = value; }
    void set_parameter_z(unsigned index, unsigned row, float value) { this->row(index, row).z = value; }

protected:
    using row_t = typename decltype(Record::rows)::value_type;

    using algorithm_with_parameters<Record>::algorithm_with_parameters;

    // visit(record, row) for one record after the other, with the first row of the adapter in its slot or null. A slot
    // without an identified adapter ends the walk: the slots behind it wait.
    template <class Visit>
    void for_each_adapter(const common_thermal_dao& dao, bool (*is_identified)(const adapter_identity&), Visit visit) {
        for (auto& [number, record] : this->records()) {
            const adapter_identity live = record.fetch_identity(dao);
            if (!is_identified(live)) {
                return;
            }
            visit(record, find_row(record, live));
        }
    }

    // The same for most lists: a card needs no third number, and a slot whose adapter no row knows is left out.
    template <class Visit>
    void for_each_match(const common_thermal_dao& dao, Visit visit) {
        for_each_adapter(dao, has_two_numbers, [&](Record& record, const row_t* row) {
            if (row != nullptr) {
                visit(record, *row);
            }
        });
    }

    void log_row(const row_t& row) const {
        LOG::log(log_source, log_mask::outcome, "%s::%s - [%02X]%04X-%04X-%04X\n", this->get_name().c_str(), "poll", 1u,
                 saturate_to_word(row.x), saturate_to_word(row.y), saturate_to_word(row.z));
    }

private:
    static const row_t* find_row(const Record& record, const adapter_identity& live) {
        for (const auto& [number, row] : record.rows) {
            if (is_adapter(row, live)) {
                return &row;
            }
        }
        return nullptr;
    }
};

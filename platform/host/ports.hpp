#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/host/file_number.hpp"
#include "platform/ports.hpp"

// What stands behind a port: counts accesses and fails them as a script says.
class port_line {
public:
    static constexpr unsigned always = ~0u;

    port_line() = default;
    virtual ~port_line() = default;
    port_line(const port_line&) = delete;
    port_line& operator=(const port_line&) = delete;

    // The next `count` accesses fail.
    void fail_reads(unsigned count = always) { _failing_reads = count; }
    void fail_writes(unsigned count = always) { _failing_writes = count; }
    void recover() { _failing_reads = _failing_writes = 0; }

    // Accesses through ports, failed ones included.
    unsigned reads() const { return _reads; }
    unsigned writes() const { return _writes; }

protected:
    bool begin_read() { return begin(_reads, _failing_reads); }
    bool begin_write() { return begin(_writes, _failing_writes); }

private:
    static bool begin(unsigned& accesses, unsigned& failing) {
        ++accesses;
        if (failing == 0) {
            return true;
        }
        if (failing != always) {
            --failing;
        }
        return false;
    }

    unsigned _reads = 0;
    unsigned _writes = 0;
    unsigned _failing_reads = 0;
    unsigned _failing_writes = 0;
};

namespace thermal_host {

// A port number or a text key.
class port_id {
public:
    template <std::integral Number>
    port_id(Number number) : _number(static_cast<std::uint32_t>(number)) {}
    port_id(std::string key) : _key(std::move(key)) {}
    port_id(const char* key) : _key(key) {}

    std::uint32_t number() const { return _number; }
    const std::optional<std::string>& key() const { return _key; }

private:
    std::uint32_t _number = 0;
    std::optional<std::string> _key;
};

// A number in memory or in a file. Serves bit ports (any value but 0 is high), integer ports and tachometer ports.
class number_line : public port_line, public bit_accessor, public integer_accessor, public fantach_accessor {
public:
    explicit number_line(std::uint32_t value) : _value(value) {}
    explicit number_line(file_number file) : _file(std::move(file)) {}

    // The hardware's side: not counted, never fails, touches no file. With a file, the last value that went through.
    std::uint32_t value() const { return _value; }
    void set_value(std::uint32_t value) { _value = value; }
    // A write through a port succeeded.
    bool was_written() const { return _was_written; }
    // The record that a tachometer port wrote last.
    const TACHData& tachometer() const { return _tachometer; }

    bool load(std::uint32_t& value);
    bool store(std::uint32_t value);

    std::uint8_t get(int& status) override;
    void set(std::uint8_t value, int& status) override;
    std::uint32_t read(int& status) override;
    void write(std::uint32_t value, int& status) override;
    void write(const TACHData& configuration, int& status) override;
    int read(TACHData& data, int& status) override;

private:
    std::uint32_t _value = 0;
    std::optional<file_number> _file;
    bool _was_written = false;
    TACHData _tachometer{};
};

// Bytes in memory. A position counts units of `bytes_per_position`. A read that starts inside is cut at the end; a
// read or write that would leave the block otherwise fails and moves nothing.
class block_line : public port_line, public block_accessor {
public:
    // Answers a write-read transaction: returns the bytes put into `in`, and sets `status` (a success beforehand).
    using script = std::function<std::uint32_t(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in,
                                               std::uint32_t max, int& status)>;

    block_line(std::vector<std::uint8_t> content, std::uint32_t bytes_per_position)
        : _bytes(std::move(content)), _bytes_per_position(bytes_per_position != 0 ? bytes_per_position : 1) {}

    // The hardware's side.
    std::vector<std::uint8_t>& bytes() { return _bytes; }
    // Without a script a write-read transaction fails.
    void set_script(script answer) { _script = std::move(answer); }

    std::uint32_t read(std::uint32_t position, std::uint8_t* buffer, std::uint32_t max, int& status) override;
    void write(std::uint32_t position, const std::uint8_t* buffer, std::uint32_t size, int& status) override;
    std::uint32_t write_read(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                             int& status) override;

private:
    std::vector<std::uint8_t> _bytes;
    std::uint32_t _bytes_per_position;
    script _script;
};

// The lines of the machine by port number and by key; loop thread only. Adding a line under a taken name replaces the
// old line. A reference to a line is good until its name is replaced or removed; ports may outlive their lines.
class port_registry {
public:
    port_registry() { change(); }

    number_line& add_number(const port_id& id, std::uint32_t value = 0);
    // A text file with one decimal number, as the attributes of a hwmon tree are.
    number_line& add_file(const port_id& id, std::string path, file_scale scale = {});
    block_line& add_block(const port_id& id, std::vector<std::uint8_t> content, std::uint32_t bytes_per_position = 1);
    void remove(const port_id& id);

    // Null if there is none.
    port_line* find(std::uint32_t number) const;
    port_line* find(const std::string& key) const;
    // Differs after every change, and between the registries of two hosts. Never 0.
    std::uint64_t generation() const { return _generation; }

private:
    template <class Line>
    Line& add(const port_id& id, std::unique_ptr<Line> line);
    void change();

    std::unordered_map<std::uint32_t, std::unique_ptr<port_line>> _numbered;
    std::unordered_map<std::string, std::unique_ptr<port_line>> _keyed;
    std::uint64_t _generation = 0;
};

}  // namespace thermal_host

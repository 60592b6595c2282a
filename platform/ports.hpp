#pragma once

#include <cstdint>
#include <string>

#include "platform/api.hpp"

class logical_device;

// I/O ports come in two forms. A logical port is bound to a 32-bit port number and reaches its line through an accessor;
// a keyed port ("cio") is bound to a text key, often a line of another firmware process. Any access may block the
// calling thread for as long as the bus takes; the library calls them on the thermal thread only.

// Status of a logical access: 0 for success, anything else a failure. The caller presets a failure.
constexpr int port_status_success = 0;

// Record of a tachometer input behind a multiplexer, as its driver lays it out.
struct __attribute__((packed)) TACHData {
    std::uint8_t kind;
    std::uint8_t fan_index;  // counted from 0
    char name[20];
    std::uint8_t tach_channel_no;
    std::uint8_t mux_kind;  // 0 none, 1 two select lines, 2 three
    std::uint8_t mux;
    std::uint8_t gpio_port_1, gpio_pin_1, gpio_setting_1[2];  // select lines; the settings are the driver's
    std::uint8_t gpio_port_2, gpio_pin_2, gpio_setting_2[2];
    std::uint8_t gpio_port_3, gpio_pin_3, gpio_setting_3[2];
    std::uint8_t driver_setting[4];
    std::uint32_t tach;  // revolutions per minute, written by the port
    std::uint8_t configured;
};
static_assert(sizeof(TACHData) == 46, "the tachometer driver reads this record");

class PLATFORM_API bit_accessor {
public:
    virtual ~bit_accessor();
    virtual std::uint8_t get(int& status) = 0;
    virtual void set(std::uint8_t value, int& status) = 0;
};

class PLATFORM_API integer_accessor {
public:
    virtual ~integer_accessor();
    virtual std::uint32_t read(int& status) = 0;
    virtual void write(std::uint32_t value, int& status) = 0;
};

class PLATFORM_API block_accessor {
public:
    virtual ~block_accessor();
    // Returns the bytes read, at most `max`.
    virtual std::uint32_t read(std::uint32_t position, std::uint8_t* buffer, std::uint32_t max, int& status) = 0;
    virtual void write(std::uint32_t position, const std::uint8_t* buffer, std::uint32_t size, int& status) = 0;
    // One transaction: `size` bytes out, then `max` bytes in. Returns the bytes read.
    virtual std::uint32_t write_read(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max,
                                     int& status) = 0;
};

class PLATFORM_API fantach_accessor {
public:
    virtual ~fantach_accessor();
    virtual void write(const TACHData& configuration, int& status) = 0;
    // Fills `data.tach` and returns the same reading; a failed read changes nothing.
    virtual int read(TACHData& data, int& status) = 0;
};

enum class port_record : std::uint8_t { bit = 0, block = 1, integer = 2 };

// The platform's line behind a port, and what a port remembers of its last look-up. Only the platform reads it.
class port_line;
struct port_binding {
    port_line* line = nullptr;
    std::uint64_t generation = 0;
};

class PLATFORM_API logical_port {
public:
    logical_port(port_record record, const std::string& name);
    virtual ~logical_port();
    logical_port(const logical_port&) = delete;
    logical_port& operator=(const logical_port&) = delete;

    void assign(std::uint32_t port);
    port_record record() const { return _record; }
    const std::string& name() const { return _name; }
    std::uint32_t port() const { return _port; }

protected:
    mutable port_binding _binding;

private:
    port_record _record;
    std::string _name;
    std::uint32_t _port = ~0u;
};

// Each answers a null accessor while no line stands behind its number; a line can come and go.
class PLATFORM_API bit_port : public logical_port {
public:
    explicit bit_port(const std::string& name);
    bit_accessor* accessor() const;
};

class PLATFORM_API integer_port : public logical_port {
public:
    explicit integer_port(const std::string& name);
    integer_accessor* accessor() const;
};

class PLATFORM_API block_port : public logical_port {
public:
    explicit block_port(const std::string& name);
    block_accessor* accessor() const;
};

class PLATFORM_API fantach_hal_port : public logical_port {
public:
    explicit fantach_hal_port(const std::string& name);
    fantach_accessor* accessor() const;
};

class PLATFORM_API cio_port {
public:
    cio_port(const logical_device& owner, const std::string& name);
    virtual ~cio_port();
    cio_port(const cio_port&) = delete;
    cio_port& operator=(const cio_port&) = delete;

    void assign(const std::string& key);
    // Whether somebody serves the key now.
    virtual bool is_bound() const = 0;
    const std::string& key() const { return _key; }

protected:
    mutable port_binding _binding;

private:
    std::string _key;
};

class PLATFORM_API cio_bit_port : public cio_port {
public:
    using cio_port::cio_port;
    bool is_bound() const override;
    int get();                    // positive for high, 0 for low, negative for a failure
    int set(std::uint8_t value);  // 0 for success
};

class PLATFORM_API cio_integer_port : public cio_port {
public:
    using cio_port::cio_port;
    bool is_bound() const override;
    int read(std::uint32_t* value);  // 0 for success; otherwise `*value` is unchanged
    int write(std::uint32_t value);  // 0 for success
};

// Each read and write starts where the last seek() pointed; the unit of a position is the line's.
class PLATFORM_API cio_block_port : public cio_port {
public:
    using cio_port::cio_port;
    bool is_bound() const override;
    void seek(std::uint32_t position);
    // Returns the bytes read from the position on, 0 on failure.
    std::uint32_t read(std::uint8_t* buffer, std::uint32_t max, bool wait);
    int write(const std::uint8_t* buffer, std::uint32_t size);  // 0 for success
    int write_read(const std::uint8_t* out, std::uint32_t size, std::uint8_t* in, std::uint32_t max, bool wait,
                   int timeout);  // 0 for success

private:
    std::uint32_t _position = 0;
};

struct PLATFORM_API physical_io_locator {
    // The board's name for a pin, empty if unknown.
    static std::string rev_find_pin_name(unsigned port);
    // The same for a port of any kind.
    static std::string rev_find_all(unsigned port);
};

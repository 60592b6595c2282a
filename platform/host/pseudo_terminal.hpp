#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace thermal_host {

// A pseudo-terminal in raw mode, and a symbolic link to the device that clients open. The device stays open on this side
// too, so that clients may come and go. Neither side ever waits.
class pseudo_terminal {
public:
    // Replaces a symbolic link, but nothing else. Throws if there can be no terminal or no link.
    explicit pseudo_terminal(std::string link);
    // Removes the link unless somebody else took it over.
    ~pseudo_terminal();
    pseudo_terminal(const pseudo_terminal&) = delete;
    pseudo_terminal& operator=(const pseudo_terminal&) = delete;

    // Can be read when a client wrote something.
    int descriptor() const { return _own; }
    // The number of characters read, 0 if there are none. Nothing if the terminal is of no use any more.
    std::optional<std::size_t> read(std::span<char> characters) const;
    // False if not all of it fitted.
    bool write(std::string_view text) const;
    // Characters written that no client has read yet.
    std::size_t unread() const;

private:
    class open_descriptor {
    public:
        explicit open_descriptor(int number) : _number(number) {}
        ~open_descriptor();
        open_descriptor(const open_descriptor&) = delete;
        open_descriptor& operator=(const open_descriptor&) = delete;
        operator int() const { return _number; }

    private:
        int _number;
    };

    void make_link() const;

    std::string _link;
    open_descriptor _own;
    std::string _device;
    open_descriptor _client;
};

}  // namespace thermal_host

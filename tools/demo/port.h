// A port of the library as the demonstration uses it: open while it lives, traced.
#pragma once

#include <cstdint>
#include <string>

class Port {
public:
    /// Throws when it cannot be opened, with the host's reason.
    Port(const std::string& path, const std::string& trace);
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port();

    operator int32_t() const { return number_; }

private:
    int32_t number_;
};

/// Throws unless `done`.
void need(bool done, const std::string& what);

// A port of the library for a command: opened by its path, closed at the end.
#pragma once

#include <cstdint>
#include <string>

#include "arguments.h"

class Port {
public:
    /// Throws Failure with the library's reason, the device in front. `path` is the device's own with the options
    /// that the command adds.
    Port(const LineOptions& options, const std::string& path);
    explicit Port(const LineOptions& options) : Port(options, options.device) {}
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port() { close(0); }

    /// Waits that long for what was written. True when all of it has left.
    bool close(int32_t milliseconds);

    int32_t number() const { return number_; }
    const std::string& device() const { return device_; }
    bool gone() const; ///< and nobody looks for it
    /// A failure of this device, its name in front.
    [[noreturn]] void fail(const std::string& reason, int code) const;
    [[noreturn]] void failGone() const;

private:
    std::string device_;
    int32_t number_;
};

/// The library's reason for the last failure of this thread.
std::string hostReason(int32_t result);

/// Switches the library's trace of a port on. Throws Failure when the file cannot be written, which the library
/// itself does not tell.
void startTrace(int32_t port, const std::string& file);
/// The same question before the device is touched.
void requireWritable(const std::string& file);

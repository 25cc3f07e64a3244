// A device with its calls in the shape that tests like.
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "device/device.h"

namespace brisolt::test {

constexpr uint32_t readable = COM_HOST_WAIT_READ, writable = COM_HOST_WAIT_WRITE;

template <class Result> bool done(const std::future<Result>& result) {
    return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

struct TestDevice : Device {
    int32_t opened = 0;

    TestDevice() = default;
    explicit TestDevice(const std::string& path) : opened(open(path)) {}

    ComHostLineState state() const {
        ComHostLineState state{};
        EXPECT_TRUE(getLineState(state));
        return state;
    }
    template <class Change> bool change(Change change) const {
        ComHostLineState wanted = state();
        change(wanted);
        return setLineState(wanted);
    }
    void flags(uint32_t on, uint32_t off = 0) const {
        EXPECT_TRUE(change([&](ComHostLineState& s) { s.flags = (s.flags & ~off) | on; }));
    }
    void writeLimit(uint32_t milliseconds) const {
        EXPECT_TRUE(setTimeouts({sizeof(ComHostTimeouts), UINT32_MAX, 0, 0, 0, milliseconds}));
    }
    uint32_t lines() const {
        uint32_t lines = 0;
        EXPECT_TRUE(modemStatus(lines));
        return lines;
    }
    uint32_t inQueue() const { return status(COM_HOST_WANT_IN).inQueue; }
    uint32_t outQueue() const { return status(COM_HOST_WANT_OUT).outQueue; }
    uint32_t errors() const { return status(COM_HOST_WANT_ERRORS).errors; }

    /// Bytes that a write took, and its error.
    using Written = std::pair<int32_t, int32_t>;
    Written write(const std::string& bytes, uint32_t how = COM_HOST_WRITE_COMPLETE) const {
        int32_t error = -1;
        const int32_t taken = Device::write(bytes.data(), static_cast<int32_t>(bytes.size()), how, error);
        return {taken, error};
    }
    int32_t writeNow(const std::string& bytes) const { return write(bytes, COM_HOST_WRITE_NOW).first; }
    std::future<Written> writeAside(const std::string& bytes) const {
        return std::async(std::launch::async, [this, bytes] { return write(bytes); });
    }
    std::string read(std::size_t most = 100000) const {
        std::string bytes(most, '\0');
        bytes.resize(static_cast<std::size_t>(Device::read(bytes.data(), static_cast<int32_t>(most))));
        return bytes;
    }
    uint32_t wait(uint32_t events, int32_t milliseconds, int32_t wake = -1) const {
        return Device::wait(events, wake, milliseconds);
    }
};

} // namespace brisolt::test

// The library by the calls that wait: ComHostWrite and ComHostRead, and by their C++ face.
#include <algorithm>
#include <array>
#include <stdexcept>
#include <thread>

#include <brisolt.h>
#include <brisolt.hpp>
#include <brisolt_host.h>

#include "side.h"

namespace bench {
namespace {

constexpr int32_t patience = 10000; // milliseconds

int32_t opened(const std::string& path) {
    const int32_t port = ComHostOpen(path.c_str(), 115200, "8N1");
    if (port > 0)
        return port;
    std::array<char, 256> why{};
    ComHostGetErrorText(why.data(), why.size());
    throw std::runtime_error(path + ": result " + std::to_string(port) + " " + why.data());
}

std::size_t moved(int32_t count) {
    if (count <= 0)
        throw std::runtime_error("brisolt: nothing moves any more");
    return static_cast<std::size_t>(count);
}

class ExchangeLine : public Line {
public:
    explicit ExchangeLine(const std::string& path) : port_(opened(path)) {}
    ~ExchangeLine() override { ComHostClose(port_, 0); }

    void roundTrip() override {
        char byte = 'x';
        moved(ComHostWrite(port_, &byte, 1, patience));
        moved(ComHostRead(port_, &byte, 1, patience));
    }

    void receive(char* to, std::size_t total, std::size_t call) override {
        for (std::size_t got = 0; got < total;) {
            const auto most = static_cast<int32_t>(std::min(call, total - got));
            got += moved(ComHostRead(port_, to + got, most, patience));
        }
    }

    void send(char* from, std::size_t total, std::size_t call) override {
        for (std::size_t sent = 0; sent < total;) {
            const auto most = static_cast<int32_t>(std::min(call, total - sent));
            sent += moved(ComHostWrite(port_, from + sent, most, patience));
        }
    }

    /// A thread each way: both ends of it are calls that wait.
    void exchange(char* to, char* from, std::size_t total, std::size_t call) override {
        std::thread writer([=, this] { send(from, total, call); });
        receive(to, total, call);
        writer.join();
    }

    std::size_t waiting() override { return static_cast<std::size_t>(ComStatus(port_)); }

    void readSingly(char* to, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i)
            moved(ComHostRead(port_, to + i, 1, 0));
    }

private:
    const int32_t port_;

protected:
    int32_t number() const { return port_; }
};

class CppLine : public ExchangeLine {
public:
    explicit CppLine(const std::string& path) : ExchangeLine(path), port_(brisolt::port::adopt(number())) {}
    ~CppLine() override { port_.release(); }

    void roundTrip() override {
        char byte = 'x';
        port_.write(&byte, 1, std::chrono::seconds(10));
        if (port_.read(&byte, 1, std::chrono::seconds(10)) != 1)
            throw std::runtime_error("brisolt.hpp: the byte did not come back");
    }

private:
    brisolt::port port_;
};

} // namespace

const Side exchangeSide{
    "brisolt",
    [](const std::string& path) -> std::unique_ptr<Line> { return std::make_unique<ExchangeLine>(path); },
    nullptr};

const Side cppSide{
    "brisolt.hpp",
    [](const std::string& path) -> std::unique_ptr<Line> { return std::make_unique<CppLine>(path); },
    nullptr};

} // namespace bench

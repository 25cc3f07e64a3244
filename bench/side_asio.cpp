#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <stdexcept>

#include <boost/asio/io_context.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/serial_port.hpp>
#include <boost/asio/write.hpp>
#include <sys/ioctl.h>

#include "side.h"

namespace bench {
namespace {

namespace asio = boost::asio;
using Error = boost::system::error_code;

void check(const Error& error) {
    if (error)
        throw std::runtime_error("asio: " + error.message());
}

/// Works until the handlers have nothing left to do.
void runAll(asio::io_context& context) {
    context.restart();
    context.run_for(std::chrono::seconds(10));
    if (!context.stopped())
        throw std::runtime_error("asio: nothing moves any more");
}

class AsioLine : public Line {
public:
    explicit AsioLine(const std::string& path) : port_(context_, path) {}

    void roundTrip() override {
        char byte = 'x';
        asio::write(port_, asio::buffer(&byte, 1));
        asio::read(port_, asio::buffer(&byte, 1));
    }

    void receive(char* to, std::size_t total, std::size_t call) override {
        for (std::size_t got = 0; got < total;)
            got += port_.read_some(asio::buffer(to + got, std::min(call, total - got)));
    }

    void send(char* from, std::size_t total, std::size_t call) override {
        for (std::size_t sent = 0; sent < total;)
            sent += port_.write_some(asio::buffer(from + sent, std::min(call, total - sent)));
    }

    void exchange(char* to, char* from, std::size_t total, std::size_t call) override {
        std::size_t got = 0, sent = 0;
        std::function<void(const Error&, std::size_t)> read = [&](const Error& error, std::size_t count) {
            check(error);
            if ((got += count) < total)
                port_.async_read_some(asio::buffer(to + got, std::min(call, total - got)), std::ref(read));
        };
        std::function<void(const Error&, std::size_t)> write = [&](const Error& error, std::size_t count) {
            check(error);
            if ((sent += count) < total)
                port_.async_write_some(asio::buffer(from + sent, std::min(call, total - sent)),
                                       std::ref(write));
        };
        read({}, 0);
        write({}, 0);
        runAll(context_);
    }

    std::size_t waiting() override {
        int count = 0;
        ioctl(port_.native_handle(), FIONREAD, &count);
        return static_cast<std::size_t>(count);
    }

    void readSingly(char* to, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i)
            port_.read_some(asio::buffer(to + i, 1));
    }

private:
    asio::io_context context_{1};
    asio::serial_port port_;
};

class AsioLines : public Lines {
public:
    explicit AsioLines(const std::vector<std::string>& paths) {
        for (const std::string& path : paths)
            talks_.push_back(std::make_unique<Talk>(context_, path));
    }

    void roundTrips(int times, std::size_t size) override {
        for (const auto& talk : talks_)
            talk->start(times, size);
        runAll(context_);
    }

    void idle(int milliseconds) override {
        char byte = 0;
        for (const auto& talk : talks_)
            talk->port.async_read_some(asio::buffer(&byte, 1), [](const Error&, std::size_t) {});
        context_.restart();
        context_.run_for(std::chrono::milliseconds(milliseconds));
        // The handlers still refer to the byte.
        for (const auto& talk : talks_)
            talk->port.cancel();
        runAll(context_);
    }

private:
    struct Talk {
        Talk(asio::io_context& context, const std::string& path) : port(context, path) {}

        void start(int times, std::size_t size) {
            left = times;
            length = size;
            send();
        }
        void send() {
            asio::async_write(port, asio::buffer(out.data(), length),
                              [this](const Error& error, std::size_t) {
                                  check(error);
                                  receive();
                              });
        }
        void receive() {
            asio::async_read(port, asio::buffer(in.data(), length), [this](const Error& error, std::size_t) {
                check(error);
                if (--left > 0)
                    send();
            });
        }

        asio::serial_port port;
        int left = 0;
        std::size_t length = 0;
        std::vector<char> in = std::vector<char>(smallBuffer, 'x'), out = in;
    };

    asio::io_context context_{1};
    std::vector<std::unique_ptr<Talk>> talks_;
};

} // namespace

const Side asioSide{
    "Asio", [](const std::string& path) -> std::unique_ptr<Line> { return std::make_unique<AsioLine>(path); },
    [](const std::vector<std::string>& paths) -> std::unique_ptr<Lines> {
        return std::make_unique<AsioLines>(paths);
    }};

} // namespace bench

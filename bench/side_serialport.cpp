// libserialport looks for a device in the system's list of serial ones before it opens it, and then asks for
// its modem lines. A pseudo terminal is not listed and has none, so a library that insists takes no part.
#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include <libserialport.h>

#include "side.h"

namespace bench {
namespace {

constexpr unsigned int limit = 5000; // milliseconds

std::size_t checked(int result) {
    if (result >= 0)
        return static_cast<std::size_t>(result);
    if (result == SP_ERR_ARG)
        throw std::runtime_error("not a device that libserialport knows");
    char* text = sp_last_error_message();
    const std::string why = text != nullptr ? text : "no reason given";
    sp_free_error_message(text);
    throw std::runtime_error("libserialport: " + why);
}

class SerialportLine : public Line {
public:
    explicit SerialportLine(const std::string& path) {
        checked(sp_get_port_by_name(path.c_str(), &port_));
        try {
            checked(sp_open(port_, SP_MODE_READ_WRITE));
            checked(sp_set_baudrate(port_, 115200));
        } catch (...) {
            sp_free_port(port_);
            throw;
        }
    }
    ~SerialportLine() override {
        sp_close(port_);
        sp_free_port(port_);
    }

    void roundTrip() override {
        char byte = 'x';
        send(&byte, 1, 1);
        receive(&byte, 1, 1);
    }

    void receive(char* to, std::size_t total, std::size_t call) override {
        for (std::size_t got = 0; got < total;)
            got += moved(sp_blocking_read_next(port_, to + got, std::min(call, total - got), limit));
    }

    void send(char* from, std::size_t total, std::size_t call) override {
        for (std::size_t sent = 0; sent < total;)
            sent += moved(sp_blocking_write(port_, from + sent, std::min(call, total - sent), limit));
    }

    void exchange(char* to, char* from, std::size_t total, std::size_t call) override {
        sp_event_set* either = nullptr;
        sp_event_set* input = nullptr;
        checked(sp_new_event_set(&either));
        checked(sp_new_event_set(&input));
        const auto reading = static_cast<sp_event>(SP_EVENT_RX_READY);
        const auto both = static_cast<sp_event>(SP_EVENT_RX_READY | SP_EVENT_TX_READY);
        checked(sp_add_port_events(either, port_, both));
        checked(sp_add_port_events(input, port_, reading));
        for (std::size_t got = 0, sent = 0; got < total || sent < total;) {
            checked(sp_wait(sent < total ? either : input, limit));
            got += checked(sp_nonblocking_read(port_, to + got, std::min(call, total - got)));
            const int written = sp_nonblocking_write(port_, from + sent, std::min(call, total - sent));
            // No room is a failure to it.
            if (written != SP_ERR_FAIL || sp_last_error_code() != EAGAIN)
                sent += checked(written);
        }
        sp_free_event_set(either);
        sp_free_event_set(input);
    }

    std::size_t waiting() override { return checked(sp_input_waiting(port_)); }

    void readSingly(char* to, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i)
            moved(sp_nonblocking_read(port_, to + i, 1));
    }

private:
    static std::size_t moved(int result) {
        const std::size_t count = checked(result);
        if (count == 0)
            throw std::runtime_error("libserialport: nothing moves any more");
        return count;
    }

    sp_port* port_ = nullptr;
};

} // namespace

const Side serialportSide{
    "libserialport",
    [](const std::string& path) -> std::unique_ptr<Line> { return std::make_unique<SerialportLine>(path); },
    nullptr};

} // namespace bench

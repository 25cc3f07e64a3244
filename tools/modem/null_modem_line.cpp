// A modem's line over a null modem inside the process. The modem's end is an ordinary port of the library:
// raising its DTR is carrier (and DSR) to the program, and the program's DTR is its DSR.
#include <algorithm>
#include <array>
#include <mutex>
#include <stdexcept>

#include <brisolt.h>
#include <brisolt_host.h>

#include "line.h"

namespace simulated {

namespace {

// Programs count their ports from 1 and telephony has its own in the middle: modems begin at the end.
constexpr int32_t lastPort = 256, firstPort = 205;
constexpr uint32_t ringSize = 16384;
// The library does not tell when its transmit ring has room again.
constexpr int roomInterval = 5;

std::string hostError() {
    std::array<char, 512> text{};
    return ComHostGetErrorText(text.data(), text.size()) > 0 ? text.data() : "no port is free";
}

/// Opens the path on some port that is free. The port, or 0.
int32_t openSomePort(const std::string& path) {
    // What a port opens is set apart from the opening, so two modems must not do it at the same time.
    static std::mutex onlyOne;
    const std::lock_guard guard(onlyOne);
    constexpr int32_t isOpenAlready = -2;
    for (int32_t port = lastPort; port >= firstPort; --port) {
        if (ComOpenState(port) == 1)
            continue;
        ComHostMapDevice(port, path.c_str());
        const int32_t result = ComOpen("modem", port, 9600, 8, 1, 1, ringSize, ringSize);
        ComHostMapDevice(port, nullptr);
        if (result == port)
            return port;
        if (result != isOpenAlready)
            return 0;
    }
    return 0;
}

class NullModemLine final : public Line {
public:
    NullModemLine(const std::string& name, int pollRealMs);
    ~NullModemLine() override { ComClose(port_); }

    const std::string& path() const override { return path_; }
    void enter() override { ComSetNotifyThreadMessageAnyChar(port_, ComHostThreadId()); }
    std::string read(std::size_t most) override;
    std::size_t write(std::string_view bytes) override;
    bool dtr() override { return ComGetDSRStatus(port_) == 1; }
    void setCarrier(bool on) override { on ? ComSetDTR(port_) : ComClearDTR(port_); }
    void setRing(bool on) override { ComHostRing(path_.c_str(), on ? 1 : 0); }
    int watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) override;

private:
    std::string path_;
    int pollRealMs_;
    int32_t port_ = 0;
};

NullModemLine::NullModemLine(const std::string& name, int pollRealMs)
    : path_("null-modem:" + name), pollRealMs_(std::max(pollRealMs, 1)),
      port_(openSomePort(path_ + "?autobaud")) {
    if (port_ == 0)
        throw std::runtime_error(path_ + ": " + hostError());
    constexpr int32_t rtsCts = 0;
    ComSetFlow(port_, rtsCts);
    ComClearDTR(port_);
    ComHostSetLossless(port_, 1);
    ComSetBackgroundTimeout(port_, 0);
}

std::string NullModemLine::read(std::size_t most) {
    // The messages have done their work by waking us.
    ComHostMessage message{};
    while (ComHostGetMessage(&message, 0) != 0) {
    }
    std::string bytes(most, '\0');
    const int32_t count = ComRead(port_, bytes.data(), static_cast<int32_t>(most));
    bytes.resize(static_cast<std::size_t>(std::max(count, 0)));
    return bytes;
}

std::size_t NullModemLine::write(std::string_view bytes) {
    // Nobody there: what the port keeps would greet the next program that opens it.
    if (!dtr() && ComGetCTSStatus(port_) != 1) {
        ComFlushOutBuf(port_);
        return bytes.size();
    }
    std::string copy(bytes);
    const int32_t taken = ComWrite(port_, copy.data(), static_cast<int32_t>(copy.size()));
    return static_cast<std::size_t>(std::max(taken, 0));
}

int NullModemLine::watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) {
    entries.push_back({forBytes ? ComHostMessageDescriptor() : -1, POLLIN, 0});
    return forRoom ? std::min(roomInterval, pollRealMs_) : pollRealMs_;
}

} // namespace

std::unique_ptr<Line> nullModemLine(const std::string& name, int pollRealMs) {
    return std::make_unique<NullModemLine>(name, pollRealMs);
}

} // namespace simulated

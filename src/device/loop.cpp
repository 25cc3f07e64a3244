// The driver behind "loop:NAME" and "loop:NAME?paced": a port that hears itself, so that a program can be tried
// without hardware and without another port. It is a null-modem cable with one end: what it sends it receives,
// its RTS is its CTS, its DTR its DSR and carrier, its break one that it sees, and what null_modem.cpp says
// about queues and handshakes holds here, too: with XON/XOFF a full input stops the output that fills it.
#include "device/device.h"
#include "device/null_modem_cables.h"

namespace brisolt {

namespace {

constexpr CableKind loopKind{.scheme = "loop:",
                             .options = "is not possible here; possible: paced=yes, dtr, rts, close, "
                                        "low-latency, rs485=rts, rs485-rts, rs485-before, rs485-after, keep",
                             .taken = "it is open already",
                             .isLoop = true};

} // namespace

const ComHostDriver& drivers::loop() noexcept {
    static const ComHostDriver driver = cableDriver(loopKind);
    return driver;
}

int32_t drivers::openLoop(const char* path, const DeviceOptions& options, void** device,
                          int32_t* handle) noexcept {
    return openCable(loopKind, path, options, device, handle);
}

bool drivers::ringLoop(const char* path, bool on) noexcept {
    return ringCable(loopKind, path, on);
}

} // namespace brisolt

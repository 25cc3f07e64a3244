// What a far end may send: the input is fed to the filter of a remote serial port in pieces whose sizes it says
// itself, and whatever it holds, no more bytes come out than go in, and the answers fit their room.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "device/network/com_port.h"
#include "device/network/telnet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using brisolt::network::ComPort;
    using brisolt::network::Telnet;
    Telnet telnet;
    ComPort port;
    brisolt::ByteRing outgoing;
    if (!outgoing.reserve(64))
        return 0;
    telnet.offer(outgoing);
    port.ask(brisolt::network::rate, 9600);
    const Telnet::Listener listener{
        .hear = [](void* self,
                   std::span<const uint8_t> message) noexcept { static_cast<ComPort*>(self)->hear(message); },
        .self = &port};
    while (size > 1) {
        const std::size_t length = std::min<std::size_t>(size - 1, 1U + *data);
        std::vector<uint8_t> piece(data + 1, data + 1 + length); // of its own, so that a step beyond it shows
        const int32_t kept =
            telnet.filter(piece.data(), static_cast<int32_t>(piece.size()), outgoing, listener);
        if (kept < 0 || kept > static_cast<int32_t>(length) || outgoing.size() > outgoing.capacity())
            std::abort();
        if (length % 2 == 0)
            outgoing.clear();
        data += 1 + length;
        size -= 1 + length;
    }
    ComHostLineState state{};
    port.show(state);
    if (state.stopBits > COM_HOST_STOP_2)
        std::abort();
    return 0;
}

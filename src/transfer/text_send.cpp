#include "transfer/text_send.h"

#include <array>

#include "stream/reading.h"
#include "stream/writing.h"
#include "transfer/line_ends.h"
#include "transfer/progress.h"

namespace brisolt {

namespace {

constexpr uint32_t roomPace = 5; ///< milliseconds between looks for room: no ring tells of it

bool pauseFor(Port& port, int32_t hundredths) {
    return pauseUnlessStopped(port, pauseLength(hundredths));
}

/// A file with holes is no use to anybody: waits while the port has no room for the byte.
bool sendByte(Port& port, int32_t byte) {
    for (;;) {
        uint32_t seen = port.events.count();
        if (stopped(port))
            return false;
        int32_t taken = writeByte(port, byte);
        if (port.writeRefused != 0)
            return false;
        if (taken != 0)
            return taken > 0;
        sleepOnPort(port, seen, {}, clock::Deadline::in(roomPace));
    }
}

bool sendShaped(Port& port, int32_t byte, int32_t previous) {
    Shaped shape = shaped(*port.record, byte, previous);
    if (shape.dropped)
        return true;
    if (shape.afterReturn && !(sendByte(port, carriageReturn) && pauseFor(port, port.record->charDelay)))
        return false;
    if (!sendByte(port, byte))
        return false;
    progress::addBytes(port, 1);
    return true;
}

/// What the far end says meanwhile is nobody's.
void discardReceived(Port& port) {
    std::array<uint8_t, 256> waste;
    // A function of the caller's may know to give one byte only.
    bool foreign = port.record->readFunc.load() != nullptr;
    const int32_t most = foreign ? 1 : static_cast<int32_t>(waste.size());
    while (!stopped(port) && read(port, waste.data(), most) > 0) {
    }
}

} // namespace

int32_t sendFile(Port& port, const char* name) {
    clearCancel(port);
    TextSource source(name);
    if (!source)
        return -1;
    countTransfer(port);
    forgetRefusal(port);
    int32_t previous = 0;
    int32_t byte = source.next();
    for (; byte >= 0; byte = source.next()) {
        if (!sendShaped(port, byte, previous) || !pauseFor(port, port.record->charDelay))
            return -1;
        if (byte == lineFeed && !pauseFor(port, port.record->lineDelay))
            return -1;
        discardReceived(port);
        previous = byte;
    }
    return byte == TextSource::atEnd && !port.ending() ? 1 : -1;
}

} // namespace brisolt

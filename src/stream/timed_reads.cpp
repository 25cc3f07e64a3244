#include "stream/timed_reads.h"

#include <algorithm>

#include "platform/message.h"
#include "platform/thread.h"
#include "port/io_round.h"
#include "port/log_file.h"
#include "port/trace.h"
#include "port/waits.h"
#include "stream/reading.h"

namespace brisolt {

namespace {

uint32_t milliseconds(int64_t value, int64_t unit, int64_t more = 0) {
    return static_cast<uint32_t>(std::min<int64_t>(value * unit + more, UINT32_MAX));
}

struct TimedRead {
    uint32_t start, end;
    int32_t parameter;
};

int32_t readTimedOut(Port& port, void* buffer, int32_t count, const TimedRead& times) {
    uint32_t now = clock::ticks();
    trace(port, "ComReadTimed: Timed Out:  Starttime: %u Endtime: %u  Desired Endtime: %u Endtimeparm: %d",
          times.start, now, times.end, times.parameter);
    logs::entry(port, logs::Log::protocol,
                "ComReadTimed: Timed Out:  Starttime: %u Endtime: %u  Desired Endtime: %u Endtimeparm: %d ",
                times.start, now, times.end, times.parameter);
    return read(port, buffer, count);
}

/// Where bytes stream in, the next of them are mostly there when the caller asks for them: one look costs
/// less than a wait that is over at once. Who has just written waits for an answer, which takes its time.
bool nextBytesAreThere(Port& port) noexcept {
    return port.receiving.threadStandsBack() &&
           port.answerDue.load(std::memory_order_relaxed) != thread::currentId() && takeFromDevice(port);
}

} // namespace

void sleepForBytes(Port& port, uint32_t seen, bool endsOnQuit, bool messages, const clock::Deadline& until) {
    if (nextBytesAreThere(port))
        return;
    bool asked = port.record->escapeFunc.load() != nullptr; // a function in its place knows no quit
    bool handled = messages && (asked || !message::quitPending());
    WaitFor what{.bytes = true, .messages = handled, .quit = messages && endsOnQuit};
    sleepOnPort(port, seen, what, nextLook(port, what, until));
}

int32_t readTimed(Port& port, void* buffer, int32_t count, int32_t hundredths) {
    int32_t timeout = hundredths < 11 ? 1000 : hundredths;
    uint32_t length = milliseconds(timeout, 10);
    TimedRead times{.start = clock::ticks(), .end = 0, .parameter = timeout};
    times.end = times.start + length;
    auto until = clock::Deadline::in(length);
    clearCancel(port);
    while (!until.passed()) {
        uint32_t seen = port.events.count();
        int32_t waiting = bytesArrived(port);
        if (port.ending())
            return -1;
        if (waiting >= count) {
            int32_t got = read(port, buffer, count);
            trace(port,
                  "ComReadTimed: Got requested bytes Bytes: %d Starttime: %u Endtime: %u Endtimeparm: %d",
                  count, times.start, clock::ticks(), timeout);
            return got;
        }
        checkEscapeIfYielding(port); // lets messages through; neither escape nor quit ends this wait
        sleepForBytes(port, seen, false, port.record->yield != 0, until);
    }
    return port.ending() ? -1 : readTimedOut(port, buffer, count, times);
}

namespace {

/// How a buffered read goes on after a byte, or after none: 0, or its result.
int32_t afterByte(Port& port, int32_t byte, int32_t n, int32_t terminator, int32_t maximum, bool late) {
    if (n >= maximum)
        return 1;
    if (byte == terminator)
        return 2;
    if (late)
        return 3;
    return checkEscape(port, port.record->escapeChar) != 0 ? 4 : 0;
}

} // namespace

int32_t readBuffer(Port& port, uint8_t* buffer, int32_t terminator, int32_t maximum, int32_t seconds) {
    clearCancel(port);
    auto until = clock::Deadline::in(milliseconds(seconds, 1000, 100));
    int32_t n = 0;
    int32_t result = maximum == 0 ? 1 : 0;
    while (result == 0) {
        uint32_t seen = port.events.count();
        if (port.ending())
            return -1;
        if (cancelled(port))
            return 4;
        int32_t byte = bytesArrived(port) > 0 ? readByte(port) : -1;
        if (byte >= 0) {
            buffer[n++] = static_cast<uint8_t>(byte);
            result = afterByte(port, byte, n, terminator, maximum, until.passed());
        } else if (until.passed()) {
            result = 3;
        } else if (checkEscape(port, port.record->escapeChar) != 0) {
            result = 4;
        } else {
            sleepForBytes(port, seen, true, true, until);
        }
    }
    if (result == 4 && port.ending())
        return -1;
    buffer[n] = 0;
    port.workArea->matchLen = result == 4 ? n - 1 : n;
    return result;
}

int32_t readToQuiet(Port& port, uint8_t* buffer, int32_t size, int32_t tenths) {
    pause(port, 11);
    uint32_t quiet = milliseconds(tenths, 100);
    auto deadline = clock::Deadline::in(quiet);
    clearCancel(port);
    for (int32_t last = 0;;) {
        uint32_t seen = port.events.count();
        if (port.ending())
            return -1;
        int32_t n = bytesArrived(port);
        if (n > last) {
            deadline = clock::Deadline::in(quiet);
            last = n;
        }
        bool full = n >= size - 1;
        if (full || deadline.passed()) {
            int32_t wanted = full ? size - 1 : n;
            int32_t got = std::min(read(port, buffer, wanted), wanted); // a driver function may say more
            if (got < 0)
                return -1;
            buffer[got] = 0;
            return got;
        }
        if (checkEscape(port, 27) == 1 || cancelled(port))
            return -1;
        checkEscapeIfYielding(port); // lets messages through
        sleepForBytes(port, seen, true, true, deadline);
    }
}

} // namespace brisolt

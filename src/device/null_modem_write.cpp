#include "device/null_modem_write.h"

#include <algorithm>
#include <system_error>

#include "device/null_modem_cable.h"

namespace brisolt {

namespace {

using Inside = NullModemCable::Inside;

int32_t failure(std::errc reason) noexcept {
    return -static_cast<int32_t>(reason);
}

clock::Deadline writeLimit(const NullModemEnd& end, uint64_t count) noexcept {
    const uint32_t milliseconds = end.writeMilliseconds(count);
    return milliseconds == UINT32_MAX ? clock::Deadline::never() : clock::Deadline::in(milliseconds);
}

} // namespace

int32_t nullModemWriteNow(NullModemEnd& end, const uint8_t* bytes, int32_t count) noexcept {
    // Each turn hands over what fits and lets the line take it, until it takes no more.
    int32_t taken = 0;
    while (taken < count) {
        const Inside inside(end);
        const auto part =
            static_cast<int32_t>(std::min<size_t>(end.room(), static_cast<size_t>(count - taken)));
        if (part == 0)
            break;
        end.output.insert(end.output.end(), bytes + taken, bytes + taken + part);
        taken += part;
    }
    return taken;
}

int32_t nullModemWriteComplete(NullModemEnd& end, const uint8_t* bytes, int32_t count,
                               int32_t& error) noexcept {
    Inside inside(end);
    const clock::Deadline limit = writeLimit(end, static_cast<uint64_t>(count));
    const uint32_t cancels = end.cancels;
    if (end.cable.wait(inside, end, nullModemTurn, -1, limit) == 0) {
        error = -failure(end.cancelledSince(cancels) ? std::errc::operation_canceled : std::errc::timed_out);
        return 0;
    }

    const uint64_t start = end.sent + end.output.size();
    end.completing = static_cast<uint64_t>(count);
    end.completeEnded = false;
    end.output.insert(end.output.end(), bytes, bytes + count);
    end.cable.wait(inside, end, nullModemWritten, -1, limit);

    const bool ended = end.cancelledSince(cancels) || end.completeEnded;
    end.takeBack();
    end.completing = 0;
    // A purge of the whole queue takes bytes before ours out too, so that `sent` may not even reach them.
    const uint64_t gone = end.sent > start ? end.sent - start : 0;
    const bool all = gone >= static_cast<uint64_t>(count);
    error = all ? 0 : -failure(ended ? std::errc::operation_canceled : std::errc::timed_out);
    return static_cast<int32_t>(gone);
}

int32_t nullModemFlush(NullModemEnd& end) noexcept {
    Inside inside(end);
    const clock::Deadline limit = writeLimit(end, end.waitingToLeave());
    const uint32_t cancels = end.cancels;
    if (end.cable.wait(inside, end, nullModemDrained, -1, limit) != 0)
        return 1;
    return failure(end.cancelledSince(cancels) ? std::errc::operation_canceled : std::errc::timed_out);
}

} // namespace brisolt

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

int32_t nullModemWriteNow(NullModemEnd& end, std::span<const uint8_t> bytes) noexcept {
    Inside inside(end);
    if (end.completing)
        return 0;
    end.handed = bytes;
    inside.proceed();
    const auto kept = end.handed.first(std::min(end.room(), end.handed.size()));
    end.output.append(kept);
    const size_t refused = end.handed.size() - kept.size();
    end.handed = {};
    return static_cast<int32_t>(bytes.size() - refused);
}

int32_t nullModemWriteComplete(NullModemEnd& end, std::span<const uint8_t> bytes, int32_t& error) noexcept {
    Inside inside(end);
    const clock::Deadline limit = writeLimit(end, bytes.size());
    const uint32_t cancels = end.cancels;
    if (end.cable.wait(inside, end, nullModemTurn, -1, limit) == 0) {
        error = -failure(end.cancelledSince(cancels) ? std::errc::operation_canceled : std::errc::timed_out);
        return 0;
    }

    end.completing = true;
    end.handed = bytes;
    end.takenBack = 0;
    end.cable.wait(inside, end, nullModemWritten, -1, limit);

    const bool ended = end.cancelledSince(cancels) || end.takenBack != 0;
    end.takeBack();
    end.completing = false;
    if (end.takenBack != 0)
        error = -failure(ended ? std::errc::operation_canceled : std::errc::timed_out);
    return static_cast<int32_t>(bytes.size() - end.takenBack);
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

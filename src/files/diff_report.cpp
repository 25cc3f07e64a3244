#include "files/diff_report.h"

#include <algorithm>
#include <cinttypes>

#include "diag/debug_logs.h"
#include "util/file_diff.h"

namespace brisolt {

namespace {

using logs::Log;

constexpr int32_t closingRun = 4; ///< equal bytes that end a range

/// A range of differing bytes. Positions count from 1.
class ErrorRange {
public:
    explicit ErrorRange(Port& port) noexcept : port_(port) {}

    void look(int64_t position, bool equal) {
        if (!equal) {
            if (!open())
                first_ = position;
            last_ = position;
            equalRun_ = 0;
        } else if (open() && ++equalRun_ == closingRun) {
            close(last_);
        }
    }
    /// A range that is open at the end of the data goes up to there.
    void end(int64_t total) {
        if (open())
            close(total);
    }

private:
    bool open() const noexcept { return first_ != 0; }
    void close(int64_t last) {
        int64_t wrong = last - first_ + 1;
        logs::entry(port_, Log::debug, "ERROR RANGE: %" PRId64 " to %" PRId64 " Total Wrong: %" PRId64,
                    first_, last, wrong);
        first_ = 0;
    }
    Port& port_;
    int64_t first_ = 0; ///< 0: none is open
    int64_t last_ = 0;
    int32_t equalRun_ = 0;
};

int32_t failed(Port& port, const char* text) {
    logs::write(port, Log::debug, logs::Stamp::stamped, text);
    return readFailure;
}

} // namespace

int32_t reportDifferences(Port& port, const char* firstName, const char* secondName, const char* report) {
    FilePair files(firstName, secondName);
    if (files.refusal != 0)
        return files.refusal;
    if (logs::switchTo(port, Log::debug, report, "File DIFF Report") < 1)
        return noFirstFile;
    ErrorRange range(port);
    int64_t total = 0;
    for (;;) {
        files.read();
        if (files.firstCount < 0)
            return failed(port, "File 1 read failure - Quiting");
        if (files.secondCount < 0)
            return failed(port, "File 2 read failure - Quiting");
        if (!port.isOpen())
            return noFirstFile; // nobody waits for it any more
        int32_t count = std::min(files.firstCount, files.secondCount);
        if (count == 0)
            break;
        for (int32_t i = 0; i < count; ++i) {
            auto at = static_cast<std::size_t>(i);
            range.look(++total, files.firstBlock[at] == files.secondBlock[at]);
        }
    }
    range.end(total);
    logs::entry(port, Log::debug, "Comparison Completed Total Bytes:%" PRId64, total);
    return 0;
}

} // namespace brisolt

#include "filter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include <poll.h>
#include <unistd.h>

#include <brisolt_host.h>

#include "failure.h"
#include "interruption.h"
#include "link.h"
#include "output.h"
#include "reception.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t blockSize = 16384, mostUnsent = 65536;
constexpr double answerTime = 10;

class Filter {
public:
    explicit Filter(const TermOptions& options);
    int run();

private:
    bool receive();
    bool found(std::string_view bytes);
    void readInput();
    bool finished();
    int patience();
    void sleep(int timeout);

    const TermOptions& options_;
    Link link_;
    Reception reception_; ///< behind the device: its log is made when that could be opened
    LineEnds lineEnds_;
    std::string wanted_, tail_; ///< what ends it; the last bytes that came, shorter than that by one
    bool found_ = false, inputOver_ = false;
    Clock::time_point lastActivity_ = Clock::now();
    std::optional<Clock::time_point> until_;
};

Filter::Filter(const TermOptions& options)
    : options_(options),
      link_(options.line, options.keep ? withOption(options.line.device, "keep=yes") : options.line.device),
      reception_(options), lineEnds_(options.eol) {
    startTrace(link_.number(), options.trace);
    if (options.expect || options.until)
        wanted_ = unescaped(options.expect ? *options.expect : *options.until);
    if (options.timeout || options.expect)
        until_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>(options.timeout.value_or(answerTime)));
    if (!options.send && !options.expect)
        return;
    const std::string question = unescaped(options.send.value_or(""));
    link_.write(question);
    if (options.echo)
        reception_.display.show(question);
    inputOver_ = true;
    link_.finishWriting();
}

int Filter::run() {
    for (;;) {
        const bool more = receive();
        if (finished())
            break;
        if (until_ && Clock::now() >= *until_)
            link_.fail("\"" + (options_.expect ? *options_.expect : options_.until.value_or("")) +
                           "\" has not come in time",
                       exitTime);
        sleep(more ? 0 : patience());
        if (interruption::asked())
            throw Failure("interrupted", exitInterrupted);
    }
    reception_.display.endLine(false);
    return exitDone;
}

/// True when there may be more at once.
bool Filter::receive() {
    const News news = takeNews();
    if (options_.keep && (news.events & COM_HOST_EVENT_GONE) != 0)
        complain(link_.device() + " has gone; waiting for it");
    if (options_.keep && (news.events & COM_HOST_EVENT_BACK) != 0)
        complain(link_.device() + " is back");
    const std::string bytes = link_.read(blockSize);
    if (bytes.empty())
        return false;
    lastActivity_ = Clock::now();
    found_ = found_ || found(bytes);
    if (const std::string trouble = reception_.take(bytes); !trouble.empty())
        throw Failure(options_.log + ": " + trouble);
    return !found_;
}

bool Filter::found(std::string_view bytes) {
    if (wanted_.empty())
        return false;
    tail_ += bytes;
    const bool there = tail_.find(wanted_) != std::string::npos;
    tail_.erase(0, tail_.size() - std::min(tail_.size(), wanted_.size() - 1));
    return there;
}

void Filter::readInput() {
    std::array<char, blockSize> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    // A terminal that has been hung up ends like a file.
    if (count < 0 && errno != EIO)
        throw Failure(std::string("standard input: ") + std::strerror(errno));
    if (count <= 0) {
        inputOver_ = true;
        link_.finishWriting();
        return;
    }
    const std::string lines = lineEnds_({bytes.data(), static_cast<std::size_t>(count)});
    link_.write(lines);
    if (options_.echo)
        reception_.display.show(lines);
    lastActivity_ = Clock::now();
}

bool Filter::finished() {
    if (found_)
        return true;
    if (!inputOver_ || !wanted_.empty())
        return false;
    if (!link_.allSent())
        lastActivity_ = Clock::now();
    return Clock::now() - lastActivity_ >= milliseconds(options_.lingerMs);
}

/// How long the loop may sleep when nothing wakes it, in milliseconds.
int Filter::patience() {
    std::optional<Clock::time_point> next = until_;
    if (inputOver_ && wanted_.empty() && link_.allSent())
        next = lastActivity_ + milliseconds(options_.lingerMs);
    if (!next)
        return -1;
    const auto left = std::chrono::duration_cast<milliseconds>(*next - Clock::now()).count() + 1;
    return static_cast<int>(std::clamp<int64_t>(left, 0, 1 << 30));
}

void Filter::sleep(int timeout) {
    std::vector<pollfd> entries;
    link_.watch(entries);
    // A negative descriptor is passed over by poll.
    entries.push_back({!inputOver_ && link_.unsent() < mostUnsent ? STDIN_FILENO : -1, POLLIN, 0});
    if (poll(entries.data(), entries.size(), timeout) <= 0)
        return;
    link_.settle();
    if (entries[2].revents != 0)
        readInput();
}

} // namespace

int runFilter(const TermOptions& options) {
    return Filter(options).run();
}

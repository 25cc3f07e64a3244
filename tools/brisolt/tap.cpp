// brisolt tap: between a program and its device.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <brisolt.h>
#include <brisolt_host.h>

#include "arguments.h"
#include "commands.h"
#include "failure.h"
#include "interruption.h"
#include "line_text.h"
#include "link.h"
#include "modem/descriptor.h"
#include "modem/terminal_link.h"
#include "output.h"
#include "pcap_file.h"
#include "pty_settings.h"
#include "tap_view.h"

namespace {

struct TapOptions {
    LineOptions line;
    std::string path, pcap;
    bool hex = false, keep = false, quiet = false;
};

constexpr std::size_t blockSize = 4096, mostWaiting = 65536;

[[noreturn]] void failPty() {
    throw Failure(std::string("pseudo terminal: ") + std::strerror(errno));
}

/// The end that the program opens, seen from the other.
class ProgramEnd {
public:
    ProgramEnd(const std::string& path, const PtySettings& settings);
    const std::string& path() const { return path_; }

    /// Bytes from the program; `settings` tells whether it has changed its settings since.
    std::string read(bool& changed);
    /// To the program, when one is there: nobody wants to find what came before.
    void write(std::string_view bytes);
    bool full() const { return waiting_.size() >= mostWaiting; }
    int master() const { return master_.get(); }
    void watch(std::vector<pollfd>& entries, bool forBytes);

private:
    bool present() const;
    void push();

    simulated::TerminalLink link_;
    simulated::Descriptor master_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)};
    simulated::Descriptor opens_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
    std::string path_, waiting_;
};

ProgramEnd::ProgramEnd(const std::string& path, const PtySettings& settings) : link_(path) {
    std::array<char, 128> name{};
    if (!master_ || !opens_ || grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0 ||
        ptsname_r(master_.get(), name.data(), name.size()) != 0)
        failPty();
    path_ = name.data();
    // A master tells that nobody has the slave only when somebody has had it.
    if (!simulated::Descriptor(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) ||
        !preparePty(master_.get(), settings) || inotify_add_watch(opens_.get(), path_.c_str(), IN_OPEN) < 0)
        failPty();
    link_.pointAt(path_);
}

bool ProgramEnd::present() const {
    pollfd entry{master_.get(), 0, 0};
    return poll(&entry, 1, 0) >= 0 && (entry.revents & POLLHUP) == 0;
}

/// In packet mode a byte that tells what it is stands in front of each block.
std::string ProgramEnd::read(bool& changed) {
    std::array<char, blockSize> bytes{};
    const ssize_t count = ::read(master_.get(), bytes.data(), bytes.size());
    if (count < 1)
        return {};
    if (bytes[0] != TIOCPKT_DATA) {
        changed = changed || (bytes[0] & TIOCPKT_IOCTL) != 0;
        return {};
    }
    return {bytes.data() + 1, static_cast<std::size_t>(count) - 1};
}

void ProgramEnd::write(std::string_view bytes) {
    if (!present())
        return;
    waiting_ += bytes;
    push();
}

void ProgramEnd::push() {
    if (!present())
        waiting_.clear();
    if (waiting_.empty())
        return;
    const ssize_t count = ::write(master_.get(), waiting_.data(), waiting_.size());
    if (count > 0)
        waiting_.erase(0, static_cast<std::size_t>(count));
}

/// A master whose slave nobody has open would wake the loop all the time: the next open is waited for instead.
void ProgramEnd::watch(std::vector<pollfd>& entries, bool forBytes) {
    push();
    std::array<char, 4096> events{};
    while (::read(opens_.get(), events.data(), events.size()) > 0) {
    }
    const int wanted = (forBytes ? POLLIN | POLLPRI : 0) | (waiting_.empty() ? 0 : POLLOUT);
    entries.push_back({present() ? master_.get() : -1, static_cast<short>(wanted), 0});
    entries.push_back({opens_.get(), POLLIN, 0});
}

class Tap {
public:
    explicit Tap(const TapOptions& options);
    int run();

private:
    bool fromDevice();
    bool fromProgram();
    void passSettings();
    void note(bool transmitted, const std::string& bytes);

    const TapOptions& options_;
    std::optional<PcapFile> pcap_;
    PtySettings settings_;
    ProgramEnd program_;
    Link link_;
    TapView view_;
};

PtySettings settingsOf(const LineOptions& line) {
    return {static_cast<uint32_t>(line.baud()), line.stopBits == "2", line.flow == "rtscts",
            line.flow == "xonxoff"};
}

Tap::Tap(const TapOptions& options)
    : options_(options), settings_(settingsOf(options.line)), program_(options.path, settings_),
      link_(options.line, options.keep ? withOption(options.line.device, "keep=yes") : options.line.device),
      view_(options.hex) {
    if (!options.pcap.empty())
        pcap_.emplace(options.pcap);
    complain(link_.device() + ": the program opens " +
             (options.path.empty() ? program_.path() : options.path));
}

int Tap::run() {
    while (!interruption::asked()) {
        const News news = takeNews();
        if ((news.events & COM_HOST_EVENT_GONE) != 0)
            view_.tell("the device has gone");
        if ((news.events & COM_HOST_EVENT_BACK) != 0)
            view_.tell("the device is back");
        const bool fromOne = fromDevice();
        const bool more = fromProgram() || fromOne;
        if (view_.due() == 0)
            view_.flush();
        if (std::ferror(stdout) != 0)
            return exitFailed;
        std::vector<pollfd> entries;
        link_.watch(entries);
        program_.watch(entries, link_.unsent() < mostWaiting);
        poll(entries.data(), entries.size(), more ? 0 : view_.due());
        link_.settle();
    }
    view_.flush();
    return exitInterrupted;
}

/// True when there may be more at once.
bool Tap::fromDevice() {
    if (program_.full())
        return false;
    const std::string bytes = link_.read(blockSize);
    if (bytes.empty())
        return false;
    note(false, bytes);
    program_.write(bytes);
    return true;
}

bool Tap::fromProgram() {
    if (link_.unsent() >= mostWaiting)
        return false;
    bool changed = false;
    const std::string bytes = program_.read(changed);
    // Settings count for what is written behind them, and the change may not have been told yet.
    if (changed || !bytes.empty())
        passSettings();
    if (!bytes.empty()) {
        note(true, bytes);
        link_.write(bytes);
    }
    return changed || !bytes.empty();
}

void Tap::passSettings() {
    PtySettings now;
    if (!readPty(program_.master(), now) || now == settings_)
        return;
    settings_ = now;
    LineOptions line = options_.line;
    line.stopBits = now.twoStopBits ? "2" : line.stopBits == "2" ? "1" : line.stopBits;
    const int32_t flow = now.hardwareFlow        ? COM_FLOW_RTS_CTS
                         : now.softwareFlow      ? COM_FLOW_XON_XOFF
                         : line.flow == "dtrdsr" ? COM_FLOW_DTR_DSR
                                                 : COM_FLOW_NONE;
    const int32_t result =
        ComHostSetLine(link_.number(), static_cast<int32_t>(now.rate), line.framing().c_str(), flow);
    view_.tell(result == 1 ? lineText(link_.number())
                           : "the device does not take the settings: " + hostReason(result));
}

void Tap::note(bool transmitted, const std::string& bytes) {
    if (pcap_)
        pcap_->add(bytes, transmitted, ComHostGetLines(link_.number()));
    if (!options_.quiet)
        view_.add(transmitted, bytes);
}

int runTap(const TapOptions& options) {
    if (!options.pcap.empty())
        requireWritable(options.pcap);
    return Tap(options).run();
}

} // namespace

Command addTap(CLI::App& app) {
    static TapOptions options;
    CLI::App* tap = app.add_subcommand(
        "tap",
        "Sit between a program and its device: the program opens a pseudo terminal, and both directions are "
        "shown with their times (> from the program, < from the device). Rate, stop bits and flow control "
        "that the program sets are passed on; a pseudo terminal has neither parity nor modem lines, so those "
        "are as set here.");
    addDevice(*tap, options.line);
    addLine(*tap, options.line);
    tap->add_option("--link", options.path, "Keep a symbolic link to the program's end there")
        ->check(name())
        ->type_name("PATH");
    tap->add_flag("--hex", options.hex, "Show hex, 16 bytes a line");
    tap->add_flag("--quiet", options.quiet, "Show no data");
    tap->add_option("--pcap", options.pcap,
                    "Write a capture that Wireshark opens (link type 250, DLT_RTAC_SERIAL)")
        ->check(name())
        ->type_name("FILE");
    tap->add_flag("--keep", options.keep, "When the device goes away, wait until it is back");
    tap->footer(
        footer("", {"brisolt tap /dev/ttyUSB0 --link /tmp/ttyTap", "brisolt tap --hex -b 9600 /dev/ttyS0",
                    "brisolt tap --quiet --pcap talk.pcap usb:0403:6001"}));
    return {tap, [] { return runTap(options); }};
}

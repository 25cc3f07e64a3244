#include "file_transfer.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "failure.h"
#include "interruption.h"
#include "line_program.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int32_t goesOn = 5, endCharacter = 26, textChunk = 256;

/// A protocol of lrzsz.
struct Protocol {
    std::string_view name;
    std::vector<std::string> sender, receiver;
    std::vector<std::string> sendOptions, receiveOptions;
    double payload; ///< of the bytes on the line
};
const std::array<Protocol, 3> protocols{
    Protocol{"xmodem", {"sx", "lsx"}, {"rx", "lrx"}, {"-b"}, {"-b", "-y"}, 128.0 / 133},
    Protocol{"ymodem", {"sb", "lsb"}, {"rb", "lrb"}, {"-b", "-k"}, {"-b", "-y"}, 1024.0 / 1029},
    Protocol{"zmodem", {"sz", "lsz"}, {"rz", "lrz"}, {"-b"}, {"-b", "-y"}, 0.97}};

/// Null for text.
const Protocol* protocolOf(const TransferOptions& options) {
    for (const Protocol& protocol : protocols)
        if (protocol.name == options.protocol)
            return &protocol;
    if (options.protocol != "text")
        throw Failure("\"" + options.protocol + "\" is no protocol", exitUsage);
    return nullptr;
}

/// A folder beside the file that is to come, gone at the end with whatever is left in it.
class Workplace {
public:
    explicit Workplace(const fs::path& folder) {
        std::string name = (folder / ".brisolt-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw Failure(folder.string() + ": " + std::strerror(errno));
        path_ = name;
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;
    ~Workplace() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

fs::path folderOf(const TransferOptions& options) {
    fs::path file(options.file);
    if (fs::is_directory(file))
        return file;
    return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

/// Files are made as everybody's umask says, whatever the program that received them thinks.
void giveUsualMode(const fs::path& file) {
    const mode_t mask = umask(0);
    umask(mask);
    chmod(file.c_str(), 0666 & ~mask);
}

void moveTo(const fs::path& from, const fs::path& to) {
    giveUsualMode(from);
    std::error_code error;
    fs::rename(from, to, error);
    if (error)
        throw Failure(to.string() + ": " + error.message());
}

/// Waits for something to do in a text transfer, and sees to everything that ends it early.
class TextWatch {
public:
    TextWatch(Link& link, const TransferOptions& options, const TransferUser& user)
        : link_(link), options_(options), user_(user) {}

    /// `moved` is a number that grows as long as something moves. False when nothing has for too long.
    bool wait(uint64_t moved, int milliseconds) {
        if (moved != moved_)
            lastMove_ = Clock::now();
        moved_ = moved;
        if (link_.gone())
            link_.failGone();
        std::vector<pollfd> entries;
        link_.watch(entries);
        entries.push_back({user_.input, POLLIN, 0});
        poll(entries.data(), entries.size(), milliseconds);
        link_.settle();
        if (entries[2].revents != 0 && user_.giveUp())
            throw Failure("given up", exitInterrupted);
        if (interruption::asked())
            throw Failure("interrupted", exitInterrupted);
        return Clock::now() - lastMove_ < std::chrono::seconds(options_.timeout);
    }
    /// A pause that is wanted: it counts as movement.
    void pause(int milliseconds) {
        const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
        while (Clock::now() < end) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            lastMove_ = Clock::now();
            wait(moved_, static_cast<int>(left) + 1);
        }
    }
    [[noreturn]] void failTime() const {
        link_.fail("nothing has moved for " + std::to_string(options_.timeout) + " s", exitTime);
    }

private:
    Link& link_;
    const TransferOptions& options_;
    const TransferUser& user_;
    uint64_t moved_ = 0;
    Clock::time_point lastMove_ = Clock::now();
};

/// The library's transfer of this port is over at the end, however that comes.
struct Abort {
    int32_t port;
    explicit Abort(int32_t number) : port(number) {}
    Abort(const Abort&) = delete;
    Abort& operator=(const Abort&) = delete;
    ~Abort() { CTermAPkt(port); }
};

/// The library clears the line of received bytes around a transfer; ours are somebody's to see.
int32_t keepReceived(int32_t) {
    return 1;
}

uint64_t sentBytes(int32_t port) {
    ComHostCounters counters{};
    counters.size = sizeof counters;
    return ComHostGetCounters(port, &counters) == 1 ? counters.sent : 0;
}

void sendText(Link& link, const TransferOptions& options, const TransferUser& user) {
    const int32_t port = link.number();
    ComSetComFlushFunc(port, keepReceived);
    CSetAsciiParmAddCR(port, options.addReturns ? 1 : 0);
    CSetAsciiParmStripLF(port, 0);
    CSetAsciiParmCharDelay(port, options.charDelay);
    // The library pauses behind a chunk; for pauses behind lines a chunk is a byte, and we follow in the file.
    CSetAsciiParmLineDelay(port, 0);
    const int32_t chunk = options.charDelay > 0 || options.lineDelay > 0 ? 0 : textChunk;
    std::ifstream follow(options.file, std::ios::binary);
    const uint64_t total = fs::file_size(options.file);
    if (ComSA_Start(port, options.file.c_str(), chunk) != 1)
        throw Failure(hostReason(-1));
    const Abort abort(port);
    TextWatch watch(link, options, user);
    int32_t result = goesOn;
    while ((result = ComSA_Next(port)) == goesOn) {
        user.progress(static_cast<uint64_t>(ComGetBytes(port)), total);
        if (!watch.wait(sentBytes(port), 0))
            watch.failTime();
        if (options.lineDelay > 0 && follow.get() == '\n')
            watch.pause(options.lineDelay);
    }
    if (interruption::asked())
        throw Failure("interrupted", exitInterrupted);
    if (result != 1)
        link.gone() ? link.failGone() : link.fail("the file could not be sent", exitFailed);
    user.progress(total, total);
    link.finishWriting();
    while (!link.allSent())
        if (!watch.wait(sentBytes(port), 1000))
            watch.failTime();
}

void receiveText(Link& link, const TransferOptions& options, const TransferUser& user, const fs::path& file) {
    const int32_t port = link.number();
    ComSetComFlushFunc(port, keepReceived);
    TextWatch watch(link, options, user);
    // The library's own patience, once a transfer has begun, is 20 s: until the sender begins it is ours.
    while (ComStatus(port) < 1)
        if (!watch.wait(0, 1000))
            watch.failTime();
    if (ComRA_Start(port, file.c_str(), 1, endCharacter, 1) != 1)
        throw Failure(hostReason(-1));
    const Abort abort(port);
    for (;;) {
        const int32_t result = ComRA_Next(port);
        const auto bytes = static_cast<uint64_t>(ComGetBytes(port));
        user.progress(bytes, 0);
        if (result == 2)
            return;
        if (interruption::asked())
            throw Failure("interrupted", exitInterrupted);
        if (result == -1 && link.gone())
            link.failGone();
        if (result != goesOn && result != 3)
            link.fail("the file could not be received: it cannot be written", exitFailed);
        const bool inTime = result != 3 && watch.wait(bytes, 1000);
        if (!inTime && options.quietEnds && bytes > 0)
            return;
        if (!inTime)
            watch.failTime();
    }
}

std::string fileToSend(const TransferOptions& options) {
    return fs::absolute(options.file).string();
}

} // namespace

void requireSending(const TransferOptions& options) {
    const int file = open(options.file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (file < 0)
        throw Failure(options.file + ": " + std::strerror(errno));
    struct stat status {};
    const bool suits = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    close(file);
    if (!suits)
        throw Failure(options.file + ": not a file that can be sent");
    if (const Protocol* protocol = protocolOf(options))
        programPath(protocol->sender);
}

void requireReceiving(const TransferOptions& options) {
    if (access(options.file.c_str(), F_OK) != 0 && errno != ENOENT)
        throw Failure(options.file + ": " + std::strerror(errno));
    const bool folder = fs::is_directory(options.file);
    const bool needsName = options.protocol == "text" || options.protocol == "xmodem";
    if (folder && needsName)
        throw Failure(options.file + ": is a folder, and " + options.protocol + " tells no names");
    if (fs::exists(options.file) && !folder && !fs::is_regular_file(options.file))
        throw Failure(options.file + ": not a file that can be written");
    if (const Protocol* protocol = protocolOf(options))
        programPath(protocol->receiver);
    const Workplace possible(folderOf(options));
}

void sendFile(Link& link, const TransferOptions& options, const TransferUser& user) {
    const Protocol* protocol = protocolOf(options);
    if (protocol == nullptr) {
        sendText(link, options, user);
        return;
    }
    LineProgram program;
    program.command = {programPath(protocol->sender)};
    program.command.insert(program.command.end(), protocol->sendOptions.begin(), protocol->sendOptions.end());
    program.command.insert(program.command.end(), {"--", fileToSend(options)});
    program.total = fs::file_size(options.file);
    program.payload = protocol->payload;
    program.sending = true;
    runOnLink(link, program, options, user);
}

std::vector<std::string> receiveFile(Link& link, const TransferOptions& options, const TransferUser& user) {
    const Protocol* protocol = protocolOf(options);
    const Workplace place(folderOf(options));
    const fs::path only = place.path() / "received";
    if (protocol == nullptr) {
        receiveText(link, options, user, only);
    } else {
        LineProgram program;
        program.command = {programPath(protocol->receiver)};
        program.command.insert(program.command.end(), protocol->receiveOptions.begin(),
                               protocol->receiveOptions.end());
        if (protocol->name == "xmodem")
            program.command.emplace_back("received");
        program.folder = place.path().string();
        program.payload = protocol->payload;
        runOnLink(link, program, options, user);
    }
    std::vector<fs::path> came;
    for (const auto& entry : fs::directory_iterator(place.path()))
        came.push_back(entry.path());
    const bool folder = fs::is_directory(options.file);
    if (came.empty())
        link.fail("no file was sent", exitFailed);
    if (came.size() > 1 && !folder)
        link.fail("several files were sent; name a folder to take them all", exitFailed);
    std::vector<std::string> files;
    for (const fs::path& file : came) {
        const fs::path to = folder ? fs::path(options.file) / file.filename() : fs::path(options.file);
        moveTo(file, to);
        files.push_back(to.string());
    }
    return files;
}

#include "reception.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "failure.h"
#include "output.h"

namespace {

Stamps stampsOf(const std::string& name) {
    if (name == "day")
        return Stamps::timeOfDay;
    if (name == "start")
        return Stamps::sinceStart;
    return name == "last" ? Stamps::sinceLast : Stamps::none;
}

} // namespace

Reception::Reception(const TermOptions& options)
    : anyEol(options.anyEol), lineEnds_(isatty(STDOUT_FILENO) != 0 ? "crlf" : "lf") {
    display.hex = options.hex;
    display.stamps = stampsOf(options.stamps);
    if (!options.log.empty())
        openLog(options.log);
}

std::string Reception::take(std::string_view bytes) {
    display.show(anyEol && !display.hex ? lineEnds_(bytes) : std::string(bytes));
    if (log_ < 0)
        return {};
    try {
        writeAll(log_, bytes, "the log");
    } catch (const Failure& failure) {
        closeLog();
        return failure.what();
    }
    return {};
}

void Reception::openLog(const std::string& file) {
    closeLog();
    log_ = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC, 0666);
    if (log_ < 0)
        throw Failure(file + ": " + std::strerror(errno));
}

void Reception::closeLog() {
    if (log_ >= 0)
        close(log_);
    log_ = -1;
}

LineEnds::LineEnds(const std::string& eol) {
    if (eol == "cr" || eol == "crlf")
        end_ += '\r';
    if (eol == "lf" || eol == "crlf")
        end_ += '\n';
}

std::string LineEnds::operator()(std::string_view bytes) {
    if (asItIs())
        return std::string(bytes);
    std::string result;
    for (const char byte : bytes) {
        if (byte == '\r' || (byte == '\n' && !lastWasReturn_))
            result += end_;
        else if (byte != '\n')
            result += byte;
        lastWasReturn_ = byte == '\r';
    }
    return result;
}

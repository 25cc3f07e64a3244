// What a terminal does with the bytes that come: shown, logged.
#pragma once

#include <string>
#include <string_view>

#include "display.h"
#include "term_options.h"

/// Line ends of one kind. Enter on a terminal is a carriage return, a line of a file ends in a line feed, or in
/// both already; and devices do as they like.
class LineEnds {
public:
    explicit LineEnds(const std::string& eol);
    std::string operator()(std::string_view bytes);
    bool asItIs() const { return end_.empty(); }

private:
    std::string end_;
    bool lastWasReturn_ = false;
};

class Reception {
public:
    /// Opens the log; throws Failure.
    explicit Reception(const TermOptions& options);
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;
    ~Reception() { closeLog(); }

    /// Shows and logs. Returns why the log cannot go on (it is closed then), else "".
    std::string take(std::string_view bytes);

    Display display;
    bool anyEol; ///< a CR, an LF and both are the end of a line alike

    void openLog(const std::string& file);
    void closeLog();
    bool logs() const { return log_ >= 0; }

private:
    LineEnds lineEnds_;
    int log_ = -1;
};

// What `brisolt term` can be asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "arguments.h"

struct TermOptions {
    LineOptions line;
    bool echo = false;
    bool hex = false;
    bool keep = false;
    bool anyEol = false;    ///< what comes is shown with the line ends of a terminal
    std::string stamps;     ///< day, start or last; empty: none
    std::string log, trace; ///< files; empty: none
    std::string eol;        ///< cr, lf or crlf; empty: what is typed or piped as it is
    std::string quitKey = "ctrl-]";
    std::optional<std::string> send;   ///< a question, in the place of standard input
    std::optional<std::string> expect; ///< its answer
    std::optional<std::string> until;  ///< the end of the answer to standard input
    std::optional<double> timeout;     ///< seconds for either
    int32_t lingerMs = 300; ///< how long to listen on when the input has ended and the line is quiet
};

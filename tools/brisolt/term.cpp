// brisolt term: which of its two forms is wanted, and that everything it needs can be done.
#include <unistd.h>

#include "commands.h"
#include "failure.h"
#include "filter.h"
#include "local_terminal.h"
#include "port.h"
#include "session.h"
#include "term_options.h"

namespace {

constexpr std::string_view keys =
    R"(Keys: Ctrl-] quits (--quit-key). Ctrl-T and then
  d, r  DTR, RTS on or off           i  lines and counters
  b     break                        u  bits per second
  e     echo what is typed           x  hex
  n     any line end ends a line     h  send bytes typed in hex
  t     time stamps                  l  log on or off
  s, g  send, get a file             p  pause what is shown
  c     discard what waits unsent    z  suspend
  q     quit                         ?  these keys
Ctrl-T twice sends Ctrl-T, Ctrl-T and the quit key sends that.)";

void addForm(CLI::App& term, TermOptions& options) {
    term.add_flag("--echo", options.echo, "Show what is sent, too");
    term.add_flag("--hex", options.hex, "Show what comes as hex, 16 bytes a line");
    term.add_flag("--timestamps{day}", options.stamps,
                  "A time in front of each line: --timestamps=day (the time of day), =start or =last (since "
                  "the start, since the line before)")
        ->transform(oneOf({"day", "start", "last"}));
    term.add_option("--eol", options.eol,
                    "What the end of a line is sent as: cr, lf or crlf (as it is unless given)")
        ->transform(oneOf({"cr", "lf", "crlf"}))
        ->type_name("EOL");
    term.add_flag("--any-eol", options.anyEol,
                  "Whatever ends a line that comes (CR, LF or both) is shown as the end of a line");
    term.add_option("--quit-key", options.quitKey, "The key that quits")
        ->type_name("KEY")
        ->capture_default_str();
    term.add_flag("--keep", options.keep, "When the device goes away, wait until it is back");
    term.add_option("--log", options.log, "Append what comes, as it comes, to this file")
        ->check(name())
        ->type_name("FILE");
    term.add_option("--trace", options.trace, "Tell every read and write of the device in this file")
        ->check(name())
        ->type_name("FILE");
}

void addFilter(CLI::App& term, TermOptions& options) {
    term.add_option("--send", options.send,
                    "Send this instead of standard input (\\r \\n \\t \\e \\0 \\\\ \\xHH)")
        ->type_name("TEXT");
    term.add_option("--expect", options.expect, "End when this has come")->type_name("TEXT");
    term.add_option("--until", options.until, "With pipes: end when this has come")->type_name("TEXT");
    term.add_option("--timeout", options.timeout,
                    "Seconds that --expect (10 unless given) or --until (no limit unless given) waits")
        ->check(seconds())
        ->type_name("S");
    term.add_option("--linger", options.lingerMs,
                    "Milliseconds of quiet after the end of the input before the program ends")
        ->check(wholeNumber(0, 2147483647))
        ->type_name("MS")
        ->capture_default_str();
}

/// What makes no sense is told before the device is touched.
void check(const TermOptions& options) {
    keyByte(options.quitKey);
    for (const auto* text : {&options.send, &options.expect, &options.until})
        if (*text && (text != &options.send) && unescaped(**text).empty())
            throw Failure("--expect, --until: an empty text comes at once", exitUsage);
    if (options.send)
        unescaped(*options.send);
    if (options.until && (options.send || options.expect))
        throw Failure("--until belongs to standard input, --expect to --send: give one of them", exitUsage);
    if (options.timeout && !options.until && !options.expect)
        throw Failure("--timeout needs --expect or --until", exitUsage);
    if (!options.log.empty())
        requireWritable(options.log);
    if (!options.trace.empty())
        requireWritable(options.trace);
}

int runTerm(const TermOptions& options) {
    check(options);
    const bool question = options.send || options.expect;
    if (LocalTerminal::present() && !question && !options.until)
        return runSession(options);
    return runFilter(options);
}

} // namespace

Command addTerm(CLI::App& app) {
    static TermOptions options;
    CLI::App* term = app.add_subcommand(
        "term",
        "A terminal on a serial device. With pipes instead of a terminal it sends its standard input and "
        "prints what comes back.");
    addDevice(*term, options.line);
    term->add_option("rate", options.line.positionalRate, "Bits per second, as --baud")
        ->check(wholeNumber(1, 2147483647));
    addLine(*term, options.line);
    addForm(*term, options);
    addFilter(*term, options);
    term->footer(footer(keys, {"brisolt term /dev/ttyUSB0 115200",
                               "brisolt term --keep --log boot.log --timestamps usb:0403:6001",
                               "brisolt term /dev/ttyACM0 --send 'AT\\r' --expect OK --timeout 2"}));
    return {term, [] { return runTerm(options); }};
}

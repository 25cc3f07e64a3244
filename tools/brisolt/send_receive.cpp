// brisolt send, brisolt receive: one file over a serial line.
#include <cstdio>
#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "commands.h"
#include "digest.h"
#include "failure.h"
#include "file_transfer.h"
#include "output.h"
#include "port.h"
#include "progress_bar.h"

namespace {

struct FileOptions {
    LineOptions line;
    TransferOptions transfer;
    std::string trace;
    bool keep = false;
};

constexpr int lastWords = 2000; // milliseconds for an answer of the protocol that is under way

void addCommon(CLI::App& command, FileOptions& options) {
    addLine(command, options.line);
    command
        .add_option("--protocol", options.transfer.protocol, "text, xmodem, ymodem or zmodem (or t, x, y, z)")
        ->transform(oneOf({"text|t", "xmodem|x", "ymodem|y", "zmodem|z"}))
        ->type_name("PROTOCOL")
        ->capture_default_str();
    command
        .add_option("--timeout", options.transfer.timeout, "Seconds in which nothing moves before it fails")
        ->check(wholeNumber(1, 1000000))
        ->type_name("S")
        ->capture_default_str();
    command.add_flag("--keep", options.keep, "When the device goes away, wait until it is back");
    command.add_option("--trace", options.trace, "Tell every read and write of the device in this file")
        ->check(name())
        ->type_name("FILE");
}

std::string pathOf(const FileOptions& options) {
    return options.keep ? withOption(options.line.device, "keep=yes") : options.line.device;
}

void tellResult(const char* what, const std::string& file, const std::string& summary) {
    std::printf("%s %s: %s\nsha256 %s\n", what, printable(file).c_str(), summary.c_str(),
                sha256(file).c_str());
}

int runSend(const FileOptions& options) {
    const TransferOptions& transfer = options.transfer;
    requireSending(transfer);
    if (!options.trace.empty())
        requireWritable(options.trace);
    Link link(options.line, pathOf(options));
    startTrace(link.number(), options.trace);
    std::string summary;
    {
        ProgressBar bar(transfer.file);
        sendFile(link, transfer, {[&bar](uint64_t done, uint64_t total) { bar.show(done, total); }, -1, {}});
        if (!link.end(lastWords))
            link.fail("the end of the file has not left", exitFailed);
        summary = bar.summary(std::filesystem::file_size(transfer.file));
    }
    tellResult("sent", transfer.file, summary);
    return exitDone;
}

int runReceive(const FileOptions& options) {
    const TransferOptions& transfer = options.transfer;
    requireReceiving(transfer);
    if (!options.trace.empty())
        requireWritable(options.trace);
    Link link(options.line, pathOf(options));
    startTrace(link.number(), options.trace);
    std::vector<std::string> files;
    std::vector<std::string> summaries;
    {
        ProgressBar bar(transfer.file);
        files = receiveFile(link, transfer,
                            {[&bar](uint64_t done, uint64_t total) { bar.show(done, total); }, -1, {}});
        link.end(lastWords);
        for (const std::string& file : files)
            summaries.push_back(bar.summary(std::filesystem::file_size(file)));
    }
    for (std::size_t i = 0; i < files.size(); ++i)
        tellResult("received", files[i], summaries[i]);
    return exitDone;
}

} // namespace

Command addSend(CLI::App& app) {
    static FileOptions options;
    CLI::App* send =
        app.add_subcommand("send", "Send a file. Text goes as it stands, with the byte 26 behind it; the "
                                   "rest goes by the protocols of lrzsz.");
    send->add_option("file", options.transfer.file, "What to send")->required()->check(name());
    addDevice(*send, options.line);
    addCommon(*send, options);
    send->add_flag("--add-returns", options.transfer.addReturns,
                   "text: a carriage return in front of each line feed that has none");
    send->add_option("--char-delay", options.transfer.charDelay, "text: milliseconds after each character")
        ->check(wholeNumber(0, 10000))
        ->type_name("MS");
    send->add_option("--line-delay", options.transfer.lineDelay, "text: milliseconds after each line")
        ->check(wholeNumber(0, 10000))
        ->type_name("MS");
    send->footer(footer("", {"brisolt send firmware.bin /dev/ttyUSB0",
                             "brisolt send --protocol xmodem app.bin /dev/ttyACM0 -b 57600",
                             "brisolt send --protocol text --line-delay 50 setup.txt /dev/ttyS0"}));
    return {send, [] { return runSend(options); }};
}

Command addReceive(CLI::App& app) {
    static FileOptions options;
    CLI::App* receive = app.add_subcommand(
        "receive",
        "Receive a file. It is there when all of it has come; nothing is left of one that fails. A folder "
        "takes all files that are sent, under their own names (ymodem, zmodem).");
    addDevice(*receive, options.line);
    receive->add_option("file", options.transfer.file, "Where to write it")->required()->check(name());
    addCommon(*receive, options);
    receive->add_flag(
        "--quiet-ends", options.transfer.quietEnds,
        "text: the file ends when nothing has come for the time-out (20 s at most), not only with byte 26");
    receive->footer(
        footer("", {"brisolt receive /dev/ttyUSB0 dump.bin",
                    "brisolt receive --protocol ymodem /dev/ttyUSB0 downloads/",
                    "brisolt receive --protocol text --quiet-ends --timeout 5 /dev/ttyS0 listing.txt"}));
    return {receive, [] { return runReceive(options); }};
}

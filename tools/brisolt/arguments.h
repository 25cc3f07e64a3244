// What several commands have in common on their command lines.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

/// The device of a command, and how its line is set.
struct LineOptions {
    std::string device;
    int32_t rate = 115200;
    int32_t positionalRate = 0; ///< what stands behind the device, 0 nothing
    int32_t dataBits = 8;
    std::string parity = "none";
    std::string stopBits = "1";
    std::string flow = "none";

    int32_t baud() const { return positionalRate > 0 ? positionalRate : rate; }
    std::string framing() const; ///< "8N1" and its like
    int32_t flowCode() const;    ///< COM_FLOW_...
};

void addDevice(CLI::App& app, LineOptions& options);
/// `shortNames`: -b and its like, where the command has no others of the kind.
void addLine(CLI::App& app, LineOptions& options, bool shortNames = true);

CLI::Validator wholeNumber(int32_t least, int32_t most);
CLI::Validator seconds(); ///< above 0, fractions allowed, up to a million
/// Neither empty nor too long for the library.
CLI::Validator name();
/// One of the words; "none|n" is "none", which may be written "n". For `transform`: a check would keep the "n".
CLI::Validator oneOf(const std::vector<std::string>& words);

/// The device's path with an option ("keep=yes") unless the user has given one of that key.
std::string withOption(const std::string& device, std::string_view option);

/// What the escapes of a text stand for: \r \n \t \e \0 \\ \xHH. Throws Failure naming one that is none.
std::string unescaped(std::string_view text);
/// "1b 5b", "1b5b" or "1b:5b" as bytes; "" when it is no such thing.
std::string hexBytes(std::string_view text);
/// The byte of "ctrl-x", "^x" or one character; throws Failure.
char keyByte(const std::string& key);
/// How people read that key: "Ctrl-X".
std::string keyName(char byte);

/// The end of a help text: the keys if there are any, and examples.
std::string footer(std::string_view keys, std::initializer_list<std::string_view> examples);

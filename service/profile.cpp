#include "profile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <system_error>

#include <fcntl.h>

#include "descriptor.h"

namespace brisolt::service {

namespace {

constexpr std::string_view fileName = "telephony.ini";

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lowerCase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// ---- keys

bool setSpeed(ModemSettings& settings, const std::string& value) {
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), settings.speed);
    return error == std::errc() && end == value.data() + value.size() && settings.speed > 0;
}

/// What goes to a modem has to be printable: a control character would end a command or begin another.
bool isCommand(const std::string& value) {
    return std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c < 127; });
}

template <std::string ModemSettings::*field>
bool setCommand(ModemSettings& settings, const std::string& value) {
    settings.*field = value;
    return !value.empty() && isCommand(value);
}

bool setInit(ModemSettings& settings, const std::string& value) {
    settings.init = value; // may be empty: the modem's own settings then hold
    return isCommand(value);
}

template <class Value> struct Word {
    std::string_view word;
    Value value;
};
constexpr Word<Flow> flows[] = {
    {"hardware", Flow::hardware}, {"software", Flow::software}, {"none", Flow::none}};
constexpr Word<HangUp> hangUps[] = {{"dtr", HangUp::dtr}, {"escape", HangUp::escape}};
constexpr Word<uint32_t> bearers[] = {{"voice", bearer::voice}, {"data", bearer::data}};

template <auto field, const auto& words> bool setWord(ModemSettings& settings, const std::string& value) {
    const auto* const found = std::find_if(std::begin(words), std::end(words),
                                           [&](const auto& word) { return word.word == lowerCase(value); });
    if (found == std::end(words))
        return false;
    settings.*field = found->value;
    return true;
}

struct Key {
    std::string_view name;
    bool (*set)(ModemSettings& settings, const std::string& value);
    std::string_view possible;
};
constexpr Key keys[] = {
    {"device", setCommand<&ModemSettings::device>, "the path of a serial device"},
    {"speed", setSpeed, "bits a second"},
    {"flow", setWord<&ModemSettings::flow, flows>, "hardware, software or none"},
    {"init", setInit, "AT commands, a | between two"},
    {"dial", setCommand<&ModemSettings::dial>, "the AT command in front of a number"},
    {"answer", setCommand<&ModemSettings::answer>, "an AT command"},
    {"hangup", setWord<&ModemSettings::hangUp, hangUps>, "dtr or escape"},
    {"bearer", setWord<&ModemSettings::bearer, bearers>, "voice or data"},
};

/// A semicolon or a # behind a blank: nobody means it to go to a modem or to be part of a path.
bool endsInComment(std::string_view text) {
    return text.find(" ;") != std::string_view::npos || text.find(" #") != std::string_view::npos ||
           text.find("\t;") != std::string_view::npos || text.find("\t#") != std::string_view::npos;
}

std::string wrongValue(const Key& key, std::string_view value, bool commented) {
    std::string text(key.name);
    text.append(" = \"").append(value).append("\": has to be ").append(key.possible);
    return commented ? text + " (a comment has to have a line of its own)" : text;
}

/// Empty, or what is wrong with a line "key = value".
std::string setKey(ModemSettings& settings, std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        return "neither [a modem] nor key = value";
    const std::string name = lowerCase(trimmed(line.substr(0, equals)));
    std::string_view value = trimmed(line.substr(equals + 1));
    const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
    if (quoted)
        value = value.substr(1, value.size() - 2);
    const auto* const key =
        std::find_if(std::begin(keys), std::end(keys), [&](const Key& one) { return one.name == name; });
    if (key == std::end(keys))
        return "unknown key \"" + name + '"';
    const bool commented = !quoted && endsInComment(value);
    if (key->set(settings, std::string(value)) && !commented)
        return {};
    return wrongValue(*key, value, commented);
}

// ---- the file

struct Problem {
    std::size_t line;
    std::string what;
};

/// Calls visit(number, line) for every line with something in it until it gives false.
template <class Visit> void visitLines(std::string_view text, Visit visit) {
    std::size_t number = 0;
    bool on = true;
    while (on && !text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        ++number;
        if (!line.empty() && line.front() != ';' && line.front() != '#')
            on = visit(number, line);
    }
}

std::string beginModem(std::vector<ModemSettings>& modems, std::string_view line) {
    if (line.back() != ']')
        return "no ] behind the name";
    const std::string name(trimmed(line.substr(1, line.size() - 2)));
    if (name.empty())
        return "a modem without a name";
    if (std::any_of(modems.begin(), modems.end(), [&](const auto& modem) { return modem.name == name; }))
        return "a second modem [" + name + "]";
    modems.emplace_back().name = name;
    return {};
}

std::optional<Problem> parse(std::string_view text, std::vector<ModemSettings>& modems) {
    std::optional<Problem> problem;
    std::size_t begun = 0; // the line of the last header
    const auto finish = [&] {
        if (!problem && !modems.empty() && modems.back().device.empty())
            problem = {begun, "[" + modems.back().name + "] has no device"};
    };
    visitLines(text, [&](std::size_t number, std::string_view line) {
        std::string wrong;
        if (line.front() == '[') {
            finish();
            wrong = beginModem(modems, line);
            begun = number;
        } else {
            wrong = modems.empty() ? "stands before the first [modem]" : setKey(modems.back(), line);
        }
        if (!problem && !wrong.empty())
            problem = {number, wrong};
        return !problem;
    });
    finish();
    return problem;
}

std::string inFolder(std::string folder) {
    return folder.append("/").append(fileName);
}

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// Where the profile may be, the first choice first.
std::vector<std::string> places() {
    if (const std::string own = variable("BRISOLT_TELEPHONY"); !own.empty())
        return {inFolder(own)};
    std::vector<std::string> paths;
    if (const std::string config = variable("XDG_CONFIG_HOME"); !config.empty())
        paths.push_back(inFolder(config + "/brisolt"));
    else if (const std::string home = variable("HOME"); !home.empty())
        paths.push_back(inFolder(home + "/.config/brisolt"));
    paths.push_back(inFolder("/etc/brisolt"));
    return paths;
}

/// The file's text; none, with errno, when it cannot be read. A host that is short of what that takes may have
/// it later: that is no profile that is missing.
std::optional<std::string> readFile(const std::string& path) {
    const Descriptor file(
        throughSignals([&] { return open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC); }));
    std::string text;
    std::array<char, 4096> some{};
    ssize_t count = -1;
    const auto readSome = [&] { return read(file.get(), some.data(), some.size()); };
    while (file && (count = throughSignals(readSome)) > 0)
        text.append(some.data(), static_cast<std::size_t>(count));
    if (count == 0)
        return text;
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM)
        throw std::system_error(errno, std::generic_category(), path);
    return std::nullopt;
}

/// Some editors put a mark of the encoding in front.
std::string_view withoutMark(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return text.substr(text.starts_with(mark) ? mark.size() : 0);
}

} // namespace

void complain(const std::string& text) {
    std::fprintf(stderr, "telephony: %s\n", text.c_str());
}

std::vector<ModemSettings> readModems() {
    for (const std::string& path : places()) {
        const std::optional<std::string> text = readFile(path);
        if (!text && errno == ENOENT)
            continue;
        std::vector<ModemSettings> modems;
        if (!text) {
            complain(path + ": " + std::strerror(errno));
        } else if (const auto problem = parse(withoutMark(*text), modems)) {
            complain(path + ":" + std::to_string(problem->line) + ": " + problem->what);
            modems.clear();
        } else if (modems.empty()) {
            complain(path + ": no [modem] in it");
        }
        return modems;
    }
    std::string all;
    for (const std::string& path : places())
        all += (all.empty() ? "" : " nor ") + path;
    complain("no modems: there is no " + all);
    return {};
}

bool changeSettings(ModemSettings& settings, std::string_view lines) {
    ModemSettings changed = settings;
    bool right = true;
    visitLines(lines, [&](std::size_t, std::string_view line) {
        right = setKey(changed, line).empty();
        return right;
    });
    if (right)
        settings = std::move(changed);
    return right;
}

} // namespace brisolt::service

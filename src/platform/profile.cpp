#include "platform/profile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/file.h"

namespace brisolt::profile {

namespace {

constexpr std::string_view blanks = " \t\r\n\v\f";
constexpr std::string_view lineBreaks = "\r\n";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t largest = std::size_t{64} << 20; ///< what is larger is no profile

/// Without the blanks around it. Nothing but blanks: empty, at their start.
std::string_view trimmed(std::string_view text) noexcept {
    std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return text.substr(0, 0);
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view unquoted(std::string_view value) noexcept {
    bool quotes =
        value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front();
    return quotes ? value.substr(1, value.size() - 2) : value;
}

/// As it stands behind the equals sign, so that it reads back as it is.
std::string quotedIfNeeded(const std::string& value) {
    bool plain = trimmed(value) == value && unquoted(value) == value;
    return plain ? value : '"' + value + '"';
}

// ---- lines

enum class Kind { section, key, other };

struct Line {
    std::size_t begin, end; ///< in the text, the line's end included
    Kind kind = Kind::other;
    std::string_view name{};  ///< of the section or the key
    std::string_view value{}; ///< of the key, as it stands there
};

/// Tells what a line's content is.
void classify(std::string_view content, Line& line) noexcept {
    if (content.empty() || content.front() == ';')
        return;
    bool header = content.front() == '[';
    std::size_t nameEnd = content.find(header ? ']' : '=');
    if (nameEnd == std::string_view::npos)
        return;
    line.name = trimmed(content.substr(header ? 1 : 0, header ? nameEnd - 1 : nameEnd));
    line.kind = header ? Kind::section : Kind::key;
    if (!header)
        line.value = trimmed(content.substr(nameEnd + 1));
}

Line lineAt(std::string_view text, std::size_t begin) noexcept {
    std::size_t newline = text.find('\n', begin);
    Line line{.begin = begin, .end = newline == std::string_view::npos ? text.size() : newline + 1};
    std::string_view content = text.substr(begin, line.end - begin);
    if (begin == 0 && content.starts_with(byteOrderMark))
        content.remove_prefix(byteOrderMark.size());
    classify(trimmed(content), line);
    return line;
}

/// Calls visit(line) for the headers and keys of a section until it gives false.
template <class Visit> void visitSection(std::string_view text, std::string_view section, Visit visit) {
    section = trimmed(section);
    bool inside = false;
    for (std::size_t next = 0; next < text.size();) {
        Line line = lineAt(text, next);
        next = line.end;
        if (line.kind == Kind::section)
            inside = sameWithoutCase(line.name, section);
        if (inside && line.kind != Kind::other && !visit(line))
            return;
    }
}

bool isKey(const Line& line, std::string_view key) noexcept {
    return line.kind == Kind::key && sameWithoutCase(line.name, trimmed(key));
}

// ---- changes

/// The line end that is in use in front of a place in the text.
std::string_view lineEndBefore(std::string_view text, std::size_t place) noexcept {
    std::size_t newline = text.substr(0, place).rfind('\n');
    bool withReturn = newline != std::string_view::npos && newline > 0 && text[newline - 1] == '\r';
    return withReturn ? "\r\n" : "\n";
}

/// A line of its own behind the line that ends at `place`.
void insertLine(std::string& text, std::size_t place, const std::string& line) {
    std::string end(lineEndBefore(text, place));
    bool open = place > 0 && text[place - 1] != '\n'; // the file's last line may lack its end
    text.insert(place, (open ? end : "") + line + end);
}

/// A section of its own at the end of the file.
void appendSection(std::string& text, std::string_view section) {
    std::string end(lineEndBefore(text, text.size()));
    if (!text.empty() && text.back() != '\n')
        text += end;
    bool apart = text.empty() || text == end || text.ends_with(end + end);
    if (!apart)
        text += end;
    text.append("[").append(section).append("]").append(end);
}

void set(std::string& text, std::string_view section, std::string_view key, const std::string& value) {
    constexpr std::size_t nowhere = std::string::npos;
    std::size_t behind = nowhere; // the last line of the section that is not a comment
    Line found{.begin = nowhere, .end = nowhere};
    visitSection(text, section, [&](const Line& line) {
        behind = line.end;
        if (isKey(line, key))
            found = line;
        return found.begin == nowhere;
    });
    if (found.begin != nowhere) {
        auto start = static_cast<std::size_t>(found.value.data() - text.data());
        if (unquoted(found.value) != value)
            text.replace(start, found.value.size(), quotedIfNeeded(value));
        return;
    }
    if (behind == nowhere) {
        appendSection(text, section);
        behind = text.size();
    }
    insertLine(text, behind, std::string(key) + '=' + quotedIfNeeded(value));
}

/// Every line of the key: a second one must not come to light.
void remove(std::string& text, std::string_view section, std::string_view key) {
    std::string kept;
    std::size_t from = 0;
    visitSection(text, section, [&](const Line& line) {
        if (isKey(line, key)) {
            kept.append(text, from, line.begin - from);
            from = line.end;
        }
        return true;
    });
    if (from != 0)
        text = kept.append(text, from);
}

} // namespace

bool sameWithoutCase(std::string_view a, std::string_view b) noexcept {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [lower](char x, char y) { return lower(x) == lower(y); });
}

std::optional<std::string_view> find(std::string_view text, std::string_view section, std::string_view key) {
    std::optional<std::string_view> value;
    visitSection(text, section, [&](const Line& line) {
        if (isKey(line, key))
            value = unquoted(line.value);
        return !value;
    });
    if (value) // callers get zero-terminated strings
        value = value->substr(0, value->find('\0'));
    return value;
}

bool storable(std::string_view section, const Change& change) noexcept {
    constexpr auto none = std::string_view::npos;
    std::string_view key = trimmed(change.key);
    return section.find_first_of("]\r\n") == none && !key.empty() && key.front() != '[' &&
           key.front() != ';' && change.key.find_first_of("=\r\n") == none &&
           (!change.value || change.value->find_first_of(lineBreaks) == std::string::npos);
}

void apply(std::string& text, std::string_view section, const Change& change) {
    if (change.value)
        set(text, trimmed(section), trimmed(change.key), *change.value);
    else
        remove(text, section, change.key);
}

std::optional<std::string> read(const char* file) {
    file::Reader reader(file, file::Sharing::all);
    if (!reader)
        return std::nullopt;
    std::string text;
    std::vector<char> part(std::size_t{64} << 10);
    for (;;) {
        int32_t count = reader.read(part.data(), static_cast<int32_t>(part.size()));
        if (count == 0)
            return text;
        if (count < 0 || text.size() + static_cast<std::size_t>(count) > largest)
            return std::nullopt;
        text.append(part.data(), static_cast<std::size_t>(count));
    }
}

} // namespace brisolt::profile

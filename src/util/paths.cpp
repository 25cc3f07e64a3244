#include "util/paths.h"

#include <algorithm>
#include <cstring>

namespace brisolt::paths {

namespace {

constexpr std::string_view separators = "/\\";

bool isLetter(char character) noexcept {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

bool endsWithSeparator(std::string_view text) noexcept {
    return !text.empty() && separators.find(text.back()) != std::string_view::npos;
}

/// Ends a directory as the directory itself is written, so that everybody on this host can open the result
/// when its parts were the host's.
void endDirectory(std::string& path) {
    bool hostsOwn = path.find('/') != std::string::npos && path.find('\\') == std::string::npos;
    if (!endsWithSeparator(path))
        path += hostsOwn ? '/' : '\\';
}

/// The walk of splitAtBackslashes: a token grows until its end tells what it was.
struct Walk {
    Parts parts;
    std::string token;
    bool inExtension = false;

    static void moveTo(std::string& part, std::string& text) {
        part += text;
        text.clear();
    }
    bool isDrive() const noexcept { return parts.drive.size() + token.size() + 1 < driveRoom; }
    void endDrive() {
        moveTo(parts.drive, token);
        parts.drive += ':';
        inExtension = false;
    }
    void endDirectory() {
        if (inExtension)
            parts.directory.append(parts.name).append(parts.extension);
        parts.name.clear();
        parts.extension.clear();
        moveTo(parts.directory, token);
        parts.directory += '\\';
        inExtension = false;
    }
    void startExtension() {
        if (inExtension) {
            moveTo(parts.extension, token);
            parts.extension += '.';
        } else {
            parts.name.clear();
            moveTo(parts.name, token);
            parts.extension.assign(1, '.');
        }
        inExtension = true;
    }
    void end() {
        if (inExtension) {
            moveTo(parts.extension, token);
        } else if (!token.empty()) {
            parts.name.clear();
            moveTo(parts.name, token);
        }
    }
};

} // namespace

Place split(std::string_view path) noexcept {
    std::size_t drive = path.size() >= 2 && isLetter(path[0]) && path[1] == ':' ? 2 : 0;
    std::size_t last = path.find_last_of(separators);
    std::size_t start = last == std::string_view::npos ? drive : std::max(drive, last + 1);
    return {path.substr(0, start), path.substr(start)};
}

Parts splitAtBackslashes(std::string_view path) {
    Walk walk;
    for (char character : path.substr(0, longest)) {
        if (character == ':' && walk.isDrive())
            walk.endDrive();
        else if (character == '\\')
            walk.endDirectory();
        else if (character == '.')
            walk.startExtension();
        else
            walk.token += character;
    }
    if (path.size() < longest)
        walk.end();
    return walk.parts;
}

std::string join(std::string_view drive, std::string_view directory, std::string_view name,
                 std::string_view extension) {
    std::string path(drive);
    if (!drive.empty() && drive.back() != ':')
        path += ':';
    if (!directory.empty()) {
        path += directory;
        endDirectory(path);
    }
    path += name;
    if (!extension.empty() && extension.front() != '.')
        path += '.';
    return path.append(extension);
}

std::string inside(std::string_view directory, std::string_view file) {
    return join({}, directory, file, {});
}

const char* file(const char* path) {
    std::string name(split(path).file);
    return std::strstr(path, name.c_str());
}

} // namespace brisolt::paths

// A profile file of a test's own.
#pragma once

#include <sstream>
#include <utility>

#include "brisolt.h"
#include "support/files.h"

namespace brisolt::test {

class ProfileOnDisk {
public:
    explicit ProfileOnDisk(const std::string& text) { put(text); }
    ProfileOnDisk() = default;

    const char* path() const { return path_.c_str(); }
    std::string directory() const { return directory_.path().string(); }
    std::string sibling(const std::string& name) const { return directory_.file(name); }
    void put(const std::string& text) const { std::ofstream(path_, std::ios::binary) << text; }
    std::string text() const {
        std::ostringstream text; // in blocks: some profiles here are large
        text << std::ifstream(path_, std::ios::binary).rdbuf();
        return std::move(text).str();
    }
    /// Files in the directory: one, unless something was left behind.
    long files() const { return entriesOf(directory_.path()); }
    std::string value(const char* section, const char* key) const {
        char buffer[300];
        ComGetProfString(section, key, "<absent>", buffer, sizeof buffer, path());
        return buffer;
    }

private:
    TempDir directory_;
    std::string path_ = directory_.file("settings.ini");
};

} // namespace brisolt::test

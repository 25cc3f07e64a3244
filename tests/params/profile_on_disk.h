// A profile file of a test's own, and what stands beside it.
#pragma once

#include "support/open_port.h"

namespace brisolt::test {

class ProfileOnDisk : public Files {
public:
    ProfileOnDisk() = default;
    explicit ProfileOnDisk(const std::string& text) { put(text); }

    using Files::path;
    const char* path() const { return path_.c_str(); }
    void put(const std::string& text) const { make("settings.ini", text); }
    std::string text() const { return bytes("settings.ini"); }
    std::string value(const char* section, const char* key) const {
        char buffer[300];
        ComGetProfString(section, key, "<absent>", buffer, sizeof buffer, path());
        return buffer;
    }

private:
    std::string path_ = path("settings.ini");
};

} // namespace brisolt::test

// Files of a test's own, and what it looks at in others.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/temp_dir.h"

namespace brisolt::test {

inline std::string contentsOf(const std::filesystem::path& file) {
    std::ostringstream text; // in blocks: some files are large
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return std::move(text).str();
}

/// How many files, or in /proc/self descriptors (fd) and threads (task), a folder has.
inline long entriesOf(const std::filesystem::path& folder) {
    std::error_code gone;
    return std::distance(std::filesystem::directory_iterator(folder, gone), {});
}

class Files {
public:
    std::string path(const std::string& name) const { return directory_.file(name); }
    std::string make(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string bytes(const std::string& name) const { return contentsOf(path(name)); }
    long count() const { return entriesOf(directory_.path()); }
    /// How many of them this process has open, those without a name included.
    int opened() const {
        int count = 0;
        std::error_code ended;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            count += std::filesystem::read_symlink(entry, ended).string().starts_with(path("")) ? 1 : 0;
        return count;
    }

private:
    TempDir directory_;
};

} // namespace brisolt::test

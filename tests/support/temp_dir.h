// A directory of a test's own that is gone, with everything in it, when the test is over.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace brisolt::test {

class TempDir {
public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "brisolt-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), name);
        path_ = name;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }
    /// The path of a file in the directory, as the C interface takes it.
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

} // namespace brisolt::test

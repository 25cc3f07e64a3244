#include "platform/directory.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/posix/file_names.h"

namespace brisolt::directory {

std::string onHost(std::string_view name) {
    while (name.ends_with('\\') || name.ends_with('/'))
        name.remove_suffix(1);
    return file::nameOnHost(std::string(name).c_str()) + '/';
}

std::vector<std::string> files(const std::string& directory, std::string_view prefix) {
    std::vector<std::string> found;
    std::error_code failure;
    std::filesystem::directory_iterator entry(directory, failure), end;
    while (!failure && entry != end) {
        std::error_code unknown;
        bool named = entry->path().filename().native().starts_with(prefix);
        if (named && !entry->is_directory(unknown) && !unknown)
            found.push_back(entry->path());
        entry.increment(failure);
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace brisolt::directory

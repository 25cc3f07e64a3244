#include "util/file_list.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <unordered_set>

#include "platform/error_text.h"
#include "platform/file.h"
#include "util/file_match.h"
#include "util/paths.h"

namespace brisolt::lists {

namespace {

constexpr char nameMark = '\xFF';

/// The lists that callers have. An address that is none of them, such as that of a list already freed, is
/// refused instead of followed.
struct LiveLists {
    std::mutex mutex;
    std::unordered_set<FileList*> lists;

    static LiveLists& instance() {
        static LiveLists& live = *new LiveLists; // outlives the program's statics
        return live;
    }
    bool has(FileList* list) const noexcept { return list != nullptr && lists.contains(list); }
};

bool fits(const std::string& name) {
    if (name.size() <= longestName)
        return true;
    setErrorText("left out of the list, longer than " + std::to_string(longestName) + " characters: " + name);
    return false;
}

std::vector<std::string> selected(std::string_view pattern, std::size_t mark) {
    std::string_view directory = pattern.substr(0, mark);
    std::vector<std::string> names;
    while (mark < pattern.size()) {
        std::size_t start = mark + 1;
        mark = std::min(pattern.find(nameMark, start), pattern.size());
        if (mark > start)
            names.push_back(paths::inside(directory, pattern.substr(start, mark - start)));
    }
    return names;
}

std::vector<std::string> found(std::string_view pattern, std::size_t mostNames) {
    namespace fs = std::filesystem;
    paths::Place place = paths::split(pattern);
    std::string directory = place.directory.empty() ? "." : std::string(place.directory);
    std::vector<std::string> names;
    std::error_code failed, unknown;
    fs::directory_iterator entry(file::nameOnHost(directory.c_str()), failed);
    for (; !failed && entry != fs::directory_iterator(); entry.increment(failed)) {
        std::string name = entry->path().filename().string();
        if (searchFinds(place.file, name) && !entry->is_directory(unknown))
            names.push_back(paths::inside(place.directory, name));
    }
    std::sort(names.begin(), names.end());
    names.resize(std::min(names.size(), mostNames));
    return names;
}

} // namespace

std::vector<std::string> expand(std::string_view pattern, std::size_t mostNames) {
    std::size_t mark = pattern.find(nameMark);
    std::vector<std::string> names =
        mark == pattern.npos ? found(pattern, mostNames) : selected(pattern, mark);
    return names;
}

FileList* add(FileList* list, std::string_view pattern) {
    std::vector<std::string> names = expand(pattern, mostFound);
    std::erase_if(names, [](const std::string& name) { return !fits(name); });
    if (names.empty())
        return list;
    LiveLists& live = LiveLists::instance();
    std::scoped_lock guard(live.mutex);
    if (list != nullptr && !live.has(list))
        return nullptr;
    auto made = list == nullptr ? std::make_unique<FileList>() : nullptr;
    std::vector<std::string>& all = list == nullptr ? made->names : list->names;
    if (all.size() + names.size() > INT32_MAX)
        return nullptr;
    all.insert(all.end(), std::move_iterator(names.begin()), std::move_iterator(names.end()));
    if (list == nullptr) {
        live.lists.insert(made.get());
        list = made.release();
    }
    return list;
}

int32_t count(FileList* list) noexcept {
    LiveLists& live = LiveLists::instance();
    std::scoped_lock guard(live.mutex);
    return live.has(list) ? static_cast<int32_t>(list->names.size()) : 0;
}

bool get(FileList* list, int32_t index, char* buffer) noexcept {
    LiveLists& live = LiveLists::instance();
    std::scoped_lock guard(live.mutex);
    if (!live.has(list) || index < 0)
        return false;
    auto position = static_cast<std::size_t>(index);
    if (position >= list->names.size()) {
        live.lists.erase(list);
        delete list;
        return false;
    }
    if (buffer == nullptr)
        return false;
    const std::string& name = list->names[position];
    std::memcpy(buffer, name.c_str(), name.size() + 1);
    return true;
}

bool free(FileList* list) noexcept {
    LiveLists& live = LiveLists::instance();
    std::scoped_lock guard(live.mutex);
    if (!live.has(list))
        return false;
    live.lists.erase(list);
    delete list;
    return true;
}

} // namespace brisolt::lists

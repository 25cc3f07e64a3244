#include "util/file_list.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <unordered_set>

#include "platform/directory.h"
#include "platform/error_text.h"
#include "platform/file.h"
#include "platform/lasting.h"
#include "platform/mutex.h"
#include "util/file_match.h"
#include "util/paths.h"

namespace brisolt::lists {

namespace {

constexpr char nameMark = '\xFF';

/// The lists that callers have. An address that is none of them, such as that of a list already freed, is
/// refused instead of followed.
struct LiveLists {
    Mutex mutex;
    std::unordered_set<FileList*> lists GUARDED_BY(mutex);

    static LiveLists& instance() noexcept {
        static Lasting<LiveLists> live;
        return *live;
    }
    bool has(FileList* list) const noexcept WITH_LOCK(mutex) { return lists.contains(list); }
    void end(FileList* list) noexcept WITH_LOCK(mutex) {
        lists.erase(list);
        delete list;
    }
};

bool fits(const std::string& name) {
    if (name.size() <= longestName)
        return true;
    setErrorText("left out of the list, longer than " + std::to_string(longestName) + " characters: " + name);
    return false;
}

bool namesFiles(std::string_view pattern) noexcept {
    return pattern.find(nameMark) != pattern.npos;
}

/// use(name) for each file that the pattern names itself.
template <class Use> void eachSelected(std::string_view pattern, Use use) {
    std::size_t mark = pattern.find(nameMark);
    std::string_view directory = pattern.substr(0, mark);
    while (mark < pattern.size()) {
        std::size_t start = mark + 1;
        mark = std::min(pattern.find(nameMark, start), pattern.size());
        use(paths::inside(directory, pattern.substr(start, mark - start)));
    }
}

/// The files that a search has found, as this host names them.
struct Found {
    std::string directory; ///< empty, or with its separator
    std::vector<std::string> names;
};

Found search(const paths::Place& place) {
    Found found;
    if (!place.directory.empty()) {
        found.directory = file::nameOnHost(std::string(place.directory).c_str());
        if (found.directory.empty())
            return found; // no directory has so long a name; without one the current one would be searched
    }
    if (!found.directory.empty() && !found.directory.ends_with('/'))
        found.directory += '/';
    found.names = directory::names(found.directory.empty() ? "." : found.directory,
                                   [&](std::string_view name) { return searchFinds(place.file, name); });
    return found;
}

/// As the pattern has it, unless that would lead to another file: of a/x\y and a/x/y a program that writes
/// backslashes finds one and would name the other.
std::string nameInPattern(const paths::Place& place, const Found& found, const std::string& name) {
    std::string written = paths::inside(place.directory, name), onHost = found.directory + name;
    return file::nameOnHost(written.c_str()) == onHost ? written : onHost;
}

/// use(name) for the files that a search finds, named as in the pattern.
template <class Use> void eachFound(std::string_view pattern, Use use) {
    paths::Place place = paths::split(pattern);
    Found found = search(place);
    found.names.resize(std::min(found.names.size(), mostFound));
    for (const std::string& name : found.names)
        use(nameInPattern(place, found, name));
}

/// The names that a pattern stands for.
struct Expansion {
    std::vector<std::string> names;
    bool cutShort = false; ///< there was no memory for more of them
};

Expansion expand(std::string_view pattern) noexcept {
    Expansion made;
    auto keep = [&made](std::string name) {
        if (fits(name))
            made.names.push_back(std::move(name));
    };
    try {
        if (namesFiles(pattern))
            eachSelected(pattern, keep);
        else
            eachFound(pattern, keep);
    } catch (const std::exception&) {
        made.cutShort = true;
    }
    return made;
}

} // namespace

void removeFiles(std::string_view pattern) {
    if (namesFiles(pattern))
        return eachSelected(pattern, [](const std::string& name) { file::remove(name.c_str()); });
    Found found = search(paths::split(pattern));
    for (const std::string& name : found.names)
        file::remove((found.directory + name).c_str(), file::Spelling::hosts);
}

FileList* add(FileList* list, std::string_view pattern) {
    auto [names, cutShort] = expand(pattern);
    if (names.empty() && !cutShort)
        return list;
    LiveLists& live = LiveLists::instance();
    MutexLock guard(live.mutex);
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
    MutexLock guard(live.mutex);
    return live.has(list) ? static_cast<int32_t>(list->names.size()) : 0;
}

bool get(FileList* list, int32_t index, char* buffer) noexcept {
    LiveLists& live = LiveLists::instance();
    MutexLock guard(live.mutex);
    if (!live.has(list) || index < 0)
        return false;
    auto position = static_cast<std::size_t>(index);
    if (position >= list->names.size()) {
        live.end(list);
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
    MutexLock guard(live.mutex);
    if (!live.has(list))
        return false;
    live.end(list);
    return true;
}

} // namespace brisolt::lists

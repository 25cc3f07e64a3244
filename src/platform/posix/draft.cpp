#include "platform/draft.h"

#include <cerrno>
#include <cstdio>
#include <time.h>
#include <unistd.h>

namespace brisolt::file {

namespace {

constexpr int32_t nameTries = 20;
constexpr std::size_t nameRoom = 48;

std::string directoryOf(const std::string& place) {
    return place.substr(0, place.find_last_of('/') + 1);
}

} // namespace

/// use(a name that nobody looks for), again with another as long as something has that name already.
template <class Use> bool Draft::underFreeName(Use use) {
    const std::size_t directory = place_.find_last_of('/') + 1;
    name_.replace(0, name_.size(), place_, 0, directory);
    for (int32_t tries = 0; tries < nameTries; ++tries) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        char name[nameRoom];
        std::snprintf(name, sizeof name, ".brisolt-%x-%lx", static_cast<unsigned>(::getpid()),
                      static_cast<unsigned long>(now.tv_nsec));
        name_.replace(directory, name_.size(), name);
        if (use(name_.c_str()))
            return true;
        const int reason = errno;
        const bool inTheWay = taken(name_.c_str());
        errno = reason;
        if (!inTheWay)
            break;
    }
    name_.clear();
    return false;
}

Draft::Draft(const std::string& place, uint32_t permissions) : place_(place) {
    if (place.empty())
        return;
    name_.reserve(place.size() + nameRoom); // naming it can then not fail for want of memory
    std::string directory = directoryOf(place);
    file_ = File::unnamed(directory.empty() ? "." : directory.c_str(), permissions);
    if (file_)
        return;
    underFreeName([&](const char* name) {
        file_ = File(name, {.access = Access::write,
                            .sharing = Sharing::readOnly,
                            .opening = Opening::createNew,
                            .permissions = permissions});
        return bool(file_);
    });
}

Draft::~Draft() {
    file_.close();
    if (!name_.empty())
        discard(name_.c_str());
}

bool Draft::publish() noexcept {
    const bool named = !name_.empty();
    if (named)
        file_.close();
    if (named ? !rename(name_.c_str(), place_.c_str()) : !file_.giveName(place_.c_str()))
        return false;
    name_.clear();
    keepName(place_.c_str());
    return true;
}

bool Draft::replace() noexcept {
    // A name can be given to a file, but not taken from another in one step: that is what renaming does.
    if (name_.empty() && !underFreeName([this](const char* name) { return file_.giveName(name); }))
        return false;
    file_.close(); // whoever opens the place from now on finds nobody there
    if (!file::replace(place_.c_str(), name_.c_str()))
        return false;
    name_.clear();
    keepName(place_.c_str());
    return true;
}

} // namespace brisolt::file

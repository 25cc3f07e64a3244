#include "platform/folder_watch.h"

#include <array>
#include <climits>
#include <filesystem>
#include <map>
#include <memory>
#include <new>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brisolt {

namespace fs = std::filesystem;

struct FolderWatch::Folders {
    std::map<int32_t, std::string> paths; ///< by the host's number of the watch
};

namespace {

constexpr uint32_t news = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB | IN_DELETE_SELF |
                          IN_MOVE_SELF | IN_ONLYDIR;

bool isFolder(const fs::path& path) noexcept {
    struct stat about {};
    return ::stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

/// The folder itself, or the nearest above that is there.
fs::path nearest(fs::path folder) {
    while (!isFolder(folder) && folder.has_relative_path())
        folder = folder.parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

FolderWatch::Change changeOf(uint32_t mask) noexcept {
    if ((mask & (IN_CREATE | IN_MOVED_TO)) != 0)
        return FolderWatch::Change::came;
    return (mask & IN_ATTRIB) != 0 ? FolderWatch::Change::permissions : FolderWatch::Change::went;
}

} // namespace

FolderWatch::FolderWatch() noexcept
    : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), folders_(new (std::nothrow) Folders) {
    if (folders_ == nullptr && descriptor_ >= 0) {
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

FolderWatch::~FolderWatch() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
    delete folders_;
}

bool FolderWatch::watchFor(const std::string& path) {
    if (!usable())
        return false;
    constexpr int32_t mostLinks = 8;
    fs::path at(path);
    for (int32_t links = 0; links < mostLinks; ++links) {
        const fs::path folder = nearest(at.parent_path());
        const int32_t watch = inotify_add_watch(descriptor_, folder.c_str(), news);
        if (watch < 0)
            return false;
        folders_->paths[watch] = folder;
        std::array<char, PATH_MAX> text{};
        if (::readlink(at.c_str(), text.data(), text.size() - 1) < 0)
            return true;
        const fs::path target = text.data();
        at = (target.is_absolute() ? target : at.parent_path() / target).lexically_normal();
    }
    return true;
}

void FolderWatch::collect(const std::function<void(const std::string& path, Change change)>& tell) {
    alignas(inotify_event) std::array<char, 4096> space;
    for (;;) {
        const ssize_t got = ::read(descriptor_, space.data(), space.size());
        if (got <= 0)
            return;
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(space.data() + at);
            at += static_cast<ssize_t>(sizeof *event + event->len);
            const auto folder = folders_->paths.find(event->wd);
            if (folder == folders_->paths.end() || event->len == 0)
                tell("", changeOf(event->mask));
            else
                tell(fs::path(folder->second) / event->name, changeOf(event->mask));
            if ((event->mask & IN_IGNORED) != 0)
                folders_->paths.erase(event->wd);
        }
    }
}

CloseWatch::CloseWatch() noexcept : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

CloseWatch::~CloseWatch() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

void CloseWatch::watchFor(const char* path) noexcept {
    if (descriptor_ >= 0)
        inotify_add_watch(descriptor_, path, IN_CLOSE_WRITE);
}

} // namespace brisolt

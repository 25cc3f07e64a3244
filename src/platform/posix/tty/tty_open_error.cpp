// Why a serial device could not be opened, in words that a person can act on.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/device_holder.h"
#include "platform/posix/kernel_files.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

std::string processText(int32_t process, const std::string& name) {
    return "process " + std::to_string(process) + (name.empty() ? "" : " (" + name + ")");
}

std::string holderText(const std::string& path) {
    const serial::Holder holder = serial::holderOf(path);
    if (holder.process == 0)
        return {};
    return "; held by " + processText(holder.process, holder.name) +
           (holder.process == getpid() ? ", this program itself" : "");
}

bool inGroup(gid_t group) {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int32_t count = getgroups(static_cast<int32_t>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return getegid() == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::string groupName(gid_t group) {
    std::array<char, 4096> space{};
    struct group entry {};
    struct group* found = nullptr;
    getgrgid_r(group, &entry, space.data(), space.size(), &found);
    return found != nullptr ? found->gr_name : std::to_string(group);
}

/// In the group by the system's list, which counts from the next login on.
bool joinsAtLogin(gid_t group) {
    std::array<char, 4096> space{};
    struct passwd entry {};
    struct passwd* found = nullptr;
    getpwuid_r(geteuid(), &entry, space.data(), space.size(), &found);
    std::vector<gid_t> groups(1024);
    auto count = static_cast<int>(groups.size());
    if (found == nullptr || getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) < 0)
        return false;
    groups.resize(static_cast<std::size_t>(count));
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::string permissionText(const struct stat& about) {
    constexpr mode_t groupMayUse = S_IRGRP | S_IWGRP;
    if ((about.st_mode & groupMayUse) != groupMayUse)
        return "; only its owner may open it";
    if (inGroup(about.st_gid))
        return {};
    return "; group " + groupName(about.st_gid) + " may open it and you are " +
           (joinsAtLogin(about.st_gid) ? "in it from your next login on" : "not in it");
}

} // namespace

std::string lockedText(const std::string& path, int32_t process) {
    const std::string name = kernelFiles::firstLine("/proc/" + std::to_string(process) + "/comm");
    const std::string owner =
        process == UucpLock::unnamed ? "a program that is about to say so" : processText(process, name);
    return "cannot open " + path + ": " + std::strerror(EBUSY) + "; locked by " + owner + " in " +
           UucpLock::fileFor(path);
}

std::string openErrorText(const std::string& path, int32_t error) {
    std::string text = "cannot open " + path + ": " + std::strerror(error);
    struct stat about {};
    if (stat(path.c_str(), &about) != 0)
        return text;
    if (error == EBUSY)
        text += holderText(path);
    else if (error == EACCES)
        text += permissionText(about);
    else if (error == ENOTTY)
        text += "; it is not a serial device";
    return text;
}

} // namespace brisolt::tty

// Why a serial device could not be opened, in words that a person can act on.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <grp.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/posix/kernel_files.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

/// The process that holds the lock on a file, 0 when none is seen.
pid_t lockHolder(const struct stat& about) {
    std::array<char, 64> file{};
    std::snprintf(file.data(), file.size(), "%02x:%02x:%ju", major(about.st_dev), minor(about.st_dev),
                  static_cast<uintmax_t>(about.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string text; std::getline(locks, text);) {
        std::istringstream fields(text);
        std::string number, kind, strictness, access, locked;
        pid_t holder = 0;
        if (fields >> number >> kind >> strictness >> access >> holder >> locked && kind == "FLOCK" &&
            locked == file.data() && holder > 0)
            return holder;
    }
    return 0;
}

bool hasOpen(const std::string& descriptors, dev_t device) {
    const std::vector<std::string> numbers = kernelFiles::entries(descriptors);
    return std::any_of(numbers.begin(), numbers.end(), [&](const std::string& number) {
        struct stat about {};
        return stat((descriptors + number).c_str(), &about) == 0 && S_ISCHR(about.st_mode) &&
               about.st_rdev == device;
    });
}

/// Another process that has the device open, 0 when none is seen: those of other users are hidden from us.
pid_t openHolder(const struct stat& about) {
    for (const std::string& name : kernelFiles::entries("/proc")) {
        const pid_t process = std::atoi(name.c_str());
        if (process > 0 && process != getpid() && hasOpen("/proc/" + name + "/fd/", about.st_rdev))
            return process;
    }
    return 0;
}

std::string holderText(const struct stat& about) {
    pid_t holder = lockHolder(about);
    if (holder == 0)
        holder = openHolder(about);
    if (holder == 0)
        return {};
    const std::string name = kernelFiles::firstLine("/proc/" + std::to_string(holder) + "/comm");
    return "; held by process " + std::to_string(holder) + (name.empty() ? "" : " (" + name + ")") +
           (holder == getpid() ? ", this program itself" : "");
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

std::string permissionText(const struct stat& about) {
    constexpr mode_t groupMayUse = S_IRGRP | S_IWGRP;
    if ((about.st_mode & groupMayUse) != groupMayUse)
        return "; only its owner may open it";
    if (inGroup(about.st_gid))
        return {};
    return "; group " + groupName(about.st_gid) + " may open it and you are not in it";
}

} // namespace

std::string openErrorText(const std::string& path, int32_t error) {
    std::string text = "cannot open " + path + ": " + std::strerror(error);
    struct stat about {};
    if (stat(path.c_str(), &about) != 0)
        return text;
    if (error == EBUSY)
        text += holderText(about);
    else if (error == EACCES)
        text += permissionText(about);
    else if (error == ENOTTY)
        text += "; it is not a serial device";
    return text;
}

} // namespace brisolt::tty

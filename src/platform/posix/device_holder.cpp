#include "platform/posix/device_holder.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <vector>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/posix/kernel_files.h"

namespace brisolt::serial {

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

/// A process that has the device open, another than this one if there is one; 0 when none is seen: those of other
/// users are hidden from us.
pid_t openHolder(const struct stat& about) {
    pid_t ourselves = 0;
    for (const std::string& name : kernelFiles::entries("/proc")) {
        const pid_t process = std::atoi(name.c_str());
        if (process <= 0 || !hasOpen("/proc/" + name + "/fd/", about.st_rdev))
            continue;
        if (process != getpid())
            return process;
        ourselves = process;
    }
    return ourselves;
}

} // namespace

Holder holderOf(const std::string& path) {
    struct stat about {};
    if (stat(path.c_str(), &about) != 0)
        return {};
    Holder holder;
    holder.process = lockHolder(about);
    if (holder.process == 0)
        holder.process = openHolder(about);
    if (holder.process != 0)
        holder.name = kernelFiles::firstLine("/proc/" + std::to_string(holder.process) + "/comm");
    return holder;
}

} // namespace brisolt::serial

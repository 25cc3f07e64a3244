#include "exchange.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>

#include "host_failure.h"

namespace simulated {

namespace {

namespace fs = std::filesystem;

} // namespace

Exchange::Exchange(fs::path folder) : folder_(std::move(folder)) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (!fs::is_directory(folder_))
        throw std::runtime_error(folder_.string() + ": no folder for an exchange");
}

std::string Exchange::digits(std::string_view text) {
    constexpr std::string_view keys = "0123456789ABCD*#";
    std::string result;
    for (const char character : text)
        if (keys.find(character) != std::string_view::npos)
            result += character;
    return result;
}

void Exchange::set(const std::string& number, Fate fate) {
    const std::lock_guard guard(mutex_);
    if (fate == Fate::modem)
        fates_.erase(number);
    else
        fates_.insert_or_assign(number, fate);
}

Exchange::Route Exchange::find(const std::string& number) const {
    if (number.empty())
        return {};
    const std::lock_guard guard(mutex_);
    if (const auto fate = fates_.find(number); fate != fates_.end())
        return {fate->second, 0};
    uint16_t port = 0;
    if (!folder_.empty())
        port = portInFolder(number);
    else if (const auto entry = entries_.find(number); entry != entries_.end())
        port = entry->second.port;
    return {port == 0 ? Fate::nobody : Fate::modem, port};
}

void Exchange::enlist(const std::string& number, uint16_t port) {
    if (number.empty() || digits(number) != number)
        throw std::runtime_error("\"" + number + "\" is no telephone number (0 to 9, A to D, *, #)");
    const std::lock_guard guard(mutex_);
    if (entries_.contains(number))
        throw std::runtime_error("another modem has the number " + number);
    Entry entry{port, folder_.empty() ? Descriptor() : lockedFile(number, port)};
    entries_.emplace(number, std::move(entry));
}

void Exchange::leave(const std::string& number) {
    const std::lock_guard guard(mutex_);
    entries_.erase(number);
}

/// The file stays when the number is given back: to remove it could hit one that another has just locked.
Descriptor Exchange::lockedFile(const std::string& number, uint16_t port) const {
    const fs::path path = folder_ / number;
    // In a folder that others may write to, a link could point at any file of ours.
    Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!file)
        failHost(path.string());
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error("another modem has the number " + number);
    const std::string text = std::to_string(port) + "\n";
    if (ftruncate(file.get(), 0) != 0 ||
        pwrite(file.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        failHost(path.string());
    return file;
}

uint16_t Exchange::portInFolder(const std::string& number) const {
    const fs::path path = folder_ / number;
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file && (errno == EMFILE || errno == ENFILE || errno == ENOMEM))
        failHost(path.string());
    // Whoever can lock it is alone with it.
    if (!file || flock(file.get(), LOCK_SH | LOCK_NB) == 0)
        return 0;
    std::array<char, 16> text{};
    if (read(file.get(), text.data(), text.size() - 1) <= 0)
        return 0;
    return static_cast<uint16_t>(std::strtoul(text.data(), nullptr, 10));
}

} // namespace simulated

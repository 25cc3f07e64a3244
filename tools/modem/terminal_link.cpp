#include "terminal_link.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>

#include "host_failure.h"

namespace simulated {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const fs::path& path, const std::string& why) {
    throw std::runtime_error(path.string() + ": " + why);
}

/// An address outside the file system, so that nothing of it is left behind by a process that is killed.
struct Address {
    sockaddr_un bytes{};
    socklen_t size;

    explicit Address(const fs::path& path) {
        std::error_code error;
        const fs::path folder = fs::canonical(fs::absolute(path).parent_path(), error);
        if (error)
            refuse(path, error.message());
        // A path may be longer than an address.
        const std::size_t key = std::hash<std::string>()((folder / path.filename()).string());
        const std::string name = "brisolt-modem-link-" + std::to_string(key);
        bytes.sun_family = AF_UNIX;
        name.copy(bytes.sun_path + 1, sizeof bytes.sun_path - 1);
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&bytes); }
};

Descriptor freshSocket(const fs::path& path) {
    Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!made)
        failHost(path.string());
    return made;
}

std::string holderOf(const fs::path& path, const Address& address) {
    const Descriptor caller = freshSocket(path);
    ucred holder{};
    socklen_t size = sizeof holder;
    if (connect(caller.get(), address.get(), address.size) != 0 ||
        getsockopt(caller.get(), SOL_SOCKET, SO_PEERCRED, &holder, &size) != 0)
        return "another process";
    return "process " + std::to_string(holder.pid);
}

Descriptor holdName(const fs::path& path) {
    const Address address(path);
    Descriptor hold = freshSocket(path);
    const bool bound = bind(hold.get(), address.get(), address.size) == 0;
    if (!bound && errno == EADDRINUSE)
        refuse(path, "is the link of a terminal that is in use (" + holderOf(path, address) + ")");
    // Nobody is ever accepted: who connects only wants to know whose it is.
    if (!bound || listen(hold.get(), SOMAXCONN) != 0)
        failHost(path.string());
    return hold;
}

bool leadsToATerminal(const fs::path& link) {
    std::error_code error;
    return fs::read_symlink(link, error).string().starts_with("/dev/pts/");
}

} // namespace

TerminalLink::TerminalLink(fs::path path) : path_(std::move(path)) {
    if (path_.empty())
        return;
    hold_ = holdName(path_);
    std::error_code error;
    if (fs::symlink_status(path_, error).type() != fs::file_type::not_found && !leadsToATerminal(path_))
        refuse(path_, "is there already and no symbolic link to a terminal");
}

TerminalLink::~TerminalLink() {
    // Somebody may have put another in its place. Without memory there is still a way to remove ours.
    std::array<char, 128> target{};
    if (!terminal_.empty() && readlink(path_.c_str(), target.data(), target.size() - 1) > 0 &&
        terminal_ == target.data())
        unlink(path_.c_str());
}

void TerminalLink::pointAt(const std::string& terminal) {
    if (path_.empty())
        return;
    fs::path fresh = path_;
    fresh += ".new-" + std::to_string(getpid());
    std::error_code error;
    fs::create_symlink(terminal, fresh, error);
    if (error)
        refuse(path_, error.message());
    fs::rename(fresh, path_, error);
    if (error) {
        std::error_code ignored;
        fs::remove(fresh, ignored);
        refuse(path_, error.message());
    }
    terminal_ = terminal;
}

} // namespace simulated

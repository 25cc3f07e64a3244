#include "platform/name_lookup.h"

#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/forked.h"
#include "platform/mutex.h"
#include "platform/thread.h"

namespace brisolt {

namespace {

/// A question to the name servers; whoever waits for it and the thread that asks share it.
struct Lookup : std::enable_shared_from_this<Lookup> {
    std::string host, port;
    std::mutex mutex;
    std::condition_variable answered;
    bool done = false;
    int32_t failure = 0; ///< of getaddrinfo
    std::vector<HostAddress> addresses;
    Lookup* next = nullptr; ///< in the list of those under way
};

constinit Mutex underWayMutex;
constinit Lookup* underWay GUARDED_BY(underWayMutex) =
    nullptr; ///< each lives at least until its own thread has taken it off

/// The threads that ask are the parent's.
void beginAnew() noexcept LOCKS_UNCHECKED {
    underWayMutex.beginAnew();
    underWay = nullptr;
}

std::string textOf(const addrinfo& info) {
    char text[NI_MAXHOST] = "";
    getnameinfo(info.ai_addr, info.ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    return text;
}

int32_t ask(const std::string& host, const std::string& port, int32_t flags,
            std::vector<HostAddress>& addresses) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* raw = nullptr;
    if (const int32_t failure = getaddrinfo(host.c_str(), port.c_str(), &hints, &raw); failure != 0)
        return failure;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> found(raw, freeaddrinfo);
    for (const addrinfo* at = found.get(); at != nullptr; at = at->ai_next) {
        HostAddress address;
        if (at->ai_addrlen > address.bytes.size())
            continue;
        std::memcpy(address.bytes.data(), at->ai_addr, at->ai_addrlen);
        address.size = at->ai_addrlen;
        address.family = at->ai_family;
        address.text = textOf(*at);
        addresses.push_back(std::move(address));
    }
    return 0;
}

void takeOff(const Lookup& ended) noexcept {
    const MutexLock guard(underWayMutex);
    for (Lookup** link = &underWay; *link != nullptr; link = &(*link)->next)
        if (*link == &ended) {
            *link = ended.next;
            return;
        }
}

void askOnThread(void* argument) {
    const std::unique_ptr<std::shared_ptr<Lookup>> own(static_cast<std::shared_ptr<Lookup>*>(argument));
    Lookup& lookup = **own;
    std::vector<HostAddress> addresses;
    int32_t failure = EAI_MEMORY;
    try {
        failure = ask(lookup.host, lookup.port, AI_ADDRCONFIG, addresses);
    } catch (const std::bad_alloc&) {
        addresses.clear();
    }
    takeOff(lookup); // the next question is a new one
    const std::scoped_lock guard(lookup.mutex);
    lookup.failure = failure;
    lookup.addresses = std::move(addresses);
    lookup.done = true;
    lookup.answered.notify_all();
}

/// The question that is under way for that name, or a new one; null: the host has no thread for it.
std::shared_ptr<Lookup> begin(const std::string& host, const std::string& port) {
    forked::beginAnewInChild(beginAnew);
    const MutexLock guard(underWayMutex);
    for (Lookup* at = underWay; at != nullptr; at = at->next)
        if (at->host == host && at->port == port)
            return at->shared_from_this();
    auto lookup = std::make_shared<Lookup>();
    lookup->host = host;
    lookup->port = port;
    auto own = std::make_unique<std::shared_ptr<Lookup>>(lookup);
    if (!thread::start(askOnThread, own.get(), "brisolt-name"))
        return nullptr;
    (void)own.release();
    lookup->next = underWay;
    underWay = lookup.get();
    return lookup;
}

bool awaitAnswer(Lookup& lookup, const clock::Deadline& until) {
    std::unique_lock lock(lookup.mutex);
    const auto done = [&lookup] { return lookup.done; };
    if (until.isNever()) {
        lookup.answered.wait(lock, done);
        return true;
    }
    return lookup.answered.wait_until(lock, until.moment(), done);
}

} // namespace

std::vector<HostAddress> lookUpName(const std::string& host, const std::string& port,
                                    const clock::Deadline& until, std::string& error) {
    std::vector<HostAddress> addresses;
    if (ask(host, port, AI_NUMERICHOST, addresses) == 0) // asks nobody
        return addresses;
    addresses.clear();
    const std::shared_ptr<Lookup> lookup = begin(host, port);
    if (lookup == nullptr) {
        error = "the host has no thread to look up " + host;
        return {};
    }
    if (!awaitAnswer(*lookup, until)) {
        error = "no name server has told the address of " + host + " in time";
        return {};
    }
    const std::scoped_lock guard(lookup->mutex);
    if (lookup->failure != 0)
        error = host + ": " + gai_strerror(lookup->failure);
    return lookup->addresses;
}

} // namespace brisolt

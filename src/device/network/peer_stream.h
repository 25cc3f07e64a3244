// The bytes to and from the far end of a connection, inside TLS or as they are.
#pragma once

#include <cstdint>
#include <string>

#include "device/network/network_path.h"
#include "device/network/tls_module.h"
#include "platform/clock.h"

namespace brisolt::network {

/// Several threads may use a plain one at once; one in TLS only one at a time.
class PeerStream {
public:
    PeerStream() noexcept = default;
    PeerStream(const PeerStream&) = delete;
    PeerStream& operator=(const PeerStream&) = delete;
    ~PeerStream() { close(); }

    /// 1, or a negative error number: then `error` says why.
    int32_t open(const Kind& kind, const Path& path, std::string& error);
    void close() noexcept;

    int32_t socket() const noexcept { return socket_; }
    /// Bytes, 0 for none now, or a negative error number. Falls short of `count` only when no more are there.
    int32_t read(void* buffer, int32_t count) noexcept;
    /// Bytes taken, which are sure to go; 0 for no room now; or a negative error number.
    int32_t write(const void* buffer, int32_t count) noexcept;
    /// Sends on what was taken. Whether nothing is left of it.
    bool flush() noexcept;
    /// Bytes are there that the socket does not show.
    bool heldBack() const noexcept { return session_ != nullptr && tls_->heldBack(session_) != 0; }

private:
    int32_t shake(const Path& path, const clock::Deadline& until, std::string& error);

    int32_t socket_ = -1;
    const TlsModule* tls_ = nullptr;
    void* session_ = nullptr;
};

} // namespace brisolt::network

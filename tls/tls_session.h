// One connection in TLS. OpenSSL reads the socket itself; what it wants to send is collected and sent by us, since
// its own way raises a signal when the far end has left, and so that a record of which half is sent needs nobody to
// come back with the same bytes.
#pragma once

#include <cstdint>

#include "tls_settings.h"

namespace brisolt::network {

class TlsSession {
public:
    TlsSession(int32_t socket, Session session) noexcept : socket_(socket), ssl_(std::move(session)) {}

    bool setUp(TlsError& error) noexcept;
    int32_t shake(TlsError& error) noexcept;
    int32_t read(void* buffer, int32_t count) noexcept;
    int32_t write(const void* buffer, int32_t count) noexcept;
    int32_t flush() noexcept;
    bool heldBack() const noexcept { return heldBack_; }
    void sayGoodbye() noexcept;

private:
    bool waitsForBytes(int result) const noexcept;
    int32_t failure(int result) const noexcept;
    int32_t refusal(TlsError& error) const noexcept;
    void drop(int32_t count) noexcept;

    int32_t socket_;
    Session ssl_;
    BIO* outgoing_ = nullptr; ///< the session's
    bool heldBack_ = false;
    bool lost_ = false; ///< nothing can be said any more
};

} // namespace brisolt::network

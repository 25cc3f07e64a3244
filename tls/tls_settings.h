// What a connection asks of TLS, made into what OpenSSL wants to have.
#pragma once

#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "device/network/tls_module.h"

namespace brisolt::network {

struct FreeContext {
    void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
};
struct FreeSession {
    void operator()(SSL* session) const noexcept { SSL_free(session); }
};
using Context = std::unique_ptr<SSL_CTX, FreeContext>;
using Session = std::unique_ptr<SSL, FreeSession>;

/// Null: `error` says what cannot be used.
Session makeSession(const TlsSettings& settings, TlsError& error) noexcept;
void setText(TlsError& error, const char* what, const char* detail) noexcept;
/// The library's own last words, for people.
const char* lastReason() noexcept;

} // namespace brisolt::network

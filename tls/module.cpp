// The record of functions that the library asks the module for.
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>

#include <openssl/crypto.h>

#include "api/export.h"
#include "tls_session.h"

namespace brisolt::network {

namespace {

TlsSession& of(void* session) noexcept {
    return *static_cast<TlsSession*>(session);
}

/// A connection may be in use on a thread of the library's until the very end of the program: nothing of OpenSSL
/// may be torn down under it, unless the program itself has begun to use it before.
void startOpenSsl() noexcept {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

void* begin(int32_t socket, const TlsSettings* settings, TlsError* error) {
    Session ssl = makeSession(*settings, *error);
    if (ssl == nullptr)
        return nullptr;
    std::unique_ptr<TlsSession> session(new (std::nothrow) TlsSession(socket, std::move(ssl)));
    if (session == nullptr || !session->setUp(*error))
        return nullptr;
    return session.release();
}

constexpr TlsModule module{
    .version = tlsModuleVersion,
    .begin = begin,
    .shake = [](void* session, TlsError* error) { return of(session).shake(*error); },
    .read = [](void* session, void* buffer, int32_t count) { return of(session).read(buffer, count); },
    .write = [](void* session, const void* buffer,
                int32_t count) { return of(session).write(buffer, count); },
    .flush = [](void* session) { return of(session).flush(); },
    .heldBack = [](void* session) { return of(session).heldBack() ? 1 : 0; },
    .end =
        [](void* session) {
            const std::unique_ptr<TlsSession> own(&of(session));
            own->sayGoodbye();
        },
};

} // namespace

} // namespace brisolt::network

BRISOLT_EXPORT const brisolt::network::TlsModule* brisolt_tls_module() {
    static std::once_flag started;
    std::call_once(started, brisolt::network::startOpenSsl);
    return &brisolt::network::module;
}

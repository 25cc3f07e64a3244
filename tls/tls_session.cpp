#include "tls_session.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <sys/socket.h>

namespace brisolt::network {

bool TlsSession::setUp(TlsError& error) noexcept {
    BIO* const incoming = BIO_new_socket(socket_, BIO_NOCLOSE);
    outgoing_ = BIO_new(BIO_s_mem());
    if (incoming == nullptr || outgoing_ == nullptr) {
        BIO_free(incoming);
        BIO_free(outgoing_);
        setText(error, "TLS cannot be used: ", "no memory");
        return false;
    }
    SSL_set_bio(ssl_.get(), incoming, outgoing_);
    return true;
}

/// Why a handshake has failed.
int32_t TlsSession::refusal(TlsError& error) const noexcept {
    const long verified = SSL_get_verify_result(ssl_.get());
    if (SSL_get_verify_mode(ssl_.get()) != SSL_VERIFY_NONE && verified != X509_V_OK)
        setText(error, "its certificate is refused: ", X509_verify_cert_error_string(verified));
    else if (ERR_peek_last_error() == 0)
        setText(error, "the far end has closed the connection when asked for TLS", "");
    else
        setText(error, "TLS: ", lastReason());
    return -EPROTO;
}

int32_t TlsSession::shake(TlsError& error) noexcept {
    ERR_clear_error();
    const int result = SSL_connect(ssl_.get());
    const bool waits = result != 1 && waitsForBytes(result);
    if (result != 1 && !waits) {
        const int32_t refused = refusal(error);
        flush(); // the far end hears why
        lost_ = true;
        return refused;
    }
    const int32_t left = flush();
    if (left < 0) {
        setText(error, "the far end has closed the connection when asked for TLS", "");
        return left;
    }
    heldBack_ = result == 1 && SSL_has_pending(ssl_.get()) == 1;
    return left > 0 ? tlsWantsWrite : waits ? tlsWantsRead : tlsDone;
}

/// After a call that has failed. What the session wants by its own account is no answer: it says so also when the far
/// end has refused us.
bool TlsSession::waitsForBytes(int result) const noexcept {
    return SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
}

/// After a read or write that did nothing: it is to be tried again, or the connection is over.
int32_t TlsSession::failure(int result) const noexcept {
    return waitsForBytes(result) ? 0 : -EPIPE;
}

// What is read ahead may be a record that is not whole yet: only after a read that was satisfied may there be more.
int32_t TlsSession::read(void* buffer, int32_t count) noexcept {
    ERR_clear_error();
    int32_t got = 0;
    int result = 1;
    while (got < count && result > 0) {
        result = SSL_read(ssl_.get(), static_cast<char*>(buffer) + got, count - got);
        got += std::max(result, 0);
    }
    heldBack_ = result > 0 && SSL_has_pending(ssl_.get()) == 1;
    const int32_t failed = result > 0 ? 0 : failure(result);
    if (SSL_want_nothing(ssl_.get()) || failed == 0)
        flush(); // answers of the protocol's own
    return got > 0 ? got : failed;
}

int32_t TlsSession::write(const void* buffer, int32_t count) noexcept {
    int32_t taken = 0;
    int32_t left = flush();
    ERR_clear_error();
    while (taken < count && left == 0) {
        const int result = SSL_write(ssl_.get(), static_cast<const char*>(buffer) + taken, count - taken);
        if (result <= 0)
            return taken > 0 ? taken : failure(result);
        taken += result;
        left = flush();
    }
    return taken > 0 || left > 0 ? taken : left;
}

void TlsSession::drop(int32_t count) noexcept {
    std::array<char, 16384> gone;
    while (count > 0) {
        const int taken = BIO_read(outgoing_, gone.data(), std::min<int32_t>(count, gone.size()));
        if (taken <= 0)
            return;
        count -= taken;
    }
}

int32_t TlsSession::flush() noexcept {
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(outgoing_, &bytes);
    if (size <= 0)
        return 0;
    const ssize_t sent = send(socket_, bytes, static_cast<std::size_t>(size), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno != EAGAIN && errno != EINTR && errno != ENOBUFS && errno != ENOMEM) {
        lost_ = true;
        return -errno;
    }
    drop(static_cast<int32_t>(std::max<ssize_t>(sent, 0)));
    return static_cast<int32_t>(size - std::max<ssize_t>(sent, 0));
}

void TlsSession::sayGoodbye() noexcept {
    ERR_clear_error();
    if (!lost_ && SSL_is_init_finished(ssl_.get()) == 1 && SSL_shutdown(ssl_.get()) >= 0)
        flush();
    ERR_clear_error();
}

} // namespace brisolt::network

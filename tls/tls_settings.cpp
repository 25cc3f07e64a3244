#include "tls_settings.h"

#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

namespace brisolt::network {

namespace {

bool has(const char* text) noexcept {
    return text != nullptr && *text != 0;
}

/// A key that wants a password cannot be used: nobody may be asked for one on the program's terminal.
int noPassword(char*, int, int, void*) noexcept {
    return -1;
}

bool refuse(TlsError& error, const char* what, const char* file) noexcept {
    std::snprintf(error.text, sizeof error.text, "%s %s: %s", what, file, lastReason());
    return false;
}

bool setTrust(SSL_CTX* context, const TlsSettings& settings, TlsError& error) noexcept {
    SSL_CTX_set_verify(context, settings.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
    if (!settings.verify)
        return true;
    if (!has(settings.ca))
        return SSL_CTX_set_default_verify_paths(context) == 1 ||
               refuse(error, "cannot use the certificates of", "the system");
    return SSL_CTX_load_verify_file(context, settings.ca) == 1 ||
           refuse(error, "cannot use the authorities of", settings.ca);
}

bool setOwn(SSL_CTX* context, const TlsSettings& settings, TlsError& error) noexcept {
    if (!has(settings.cert))
        return true;
    SSL_CTX_set_default_passwd_cb(context, noPassword);
    if (SSL_CTX_use_certificate_chain_file(context, settings.cert) != 1)
        return refuse(error, "cannot use the certificate", settings.cert);
    return SSL_CTX_use_PrivateKey_file(context, settings.key, SSL_FILETYPE_PEM) == 1 ||
           refuse(error, "cannot use the key", settings.key);
}

bool isAddress(const char* name) noexcept {
    unsigned char address[sizeof(in6_addr)];
    return inet_pton(AF_INET, name, address) == 1 || inet_pton(AF_INET6, name, address) == 1;
}

/// The name is asked for, so that a host with several of them shows the right certificate, and checked.
bool setName(SSL* session, const char* name, TlsError& error) noexcept {
    const bool set = isAddress(name)
                         ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(session), name) == 1
                         : SSL_set1_host(session, name) == 1 && SSL_set_tlsext_host_name(session, name) == 1;
    SSL_set_hostflags(session, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return set || refuse(error, "cannot ask for the name", name);
}

} // namespace

const char* lastReason() noexcept {
    const unsigned long code =
        ERR_peek_error(); // the first: what comes after it is only what follows from it
    if (ERR_SYSTEM_ERROR(code))
        return std::strerror(ERR_GET_REASON(code));
    const char* const reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    return reason != nullptr ? reason : "no reason given";
}

void setText(TlsError& error, const char* what, const char* detail) noexcept {
    std::snprintf(error.text, sizeof error.text, "%s%s", what, detail);
}

Session makeSession(const TlsSettings& settings, TlsError& error) noexcept {
    ERR_clear_error();
    const Context context(SSL_CTX_new(TLS_client_method()));
    if (context == nullptr || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) {
        setText(error, "TLS cannot be used: ", lastReason());
        return nullptr;
    }
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_read_ahead(context.get(), 1);
    if (!setTrust(context.get(), settings, error) || !setOwn(context.get(), settings, error))
        return nullptr;
    Session session(SSL_new(context.get()));
    if (session == nullptr) {
        setText(error, "TLS cannot be used: ", lastReason());
        return nullptr;
    }
    return setName(session.get(), settings.name, error) ? std::move(session) : nullptr;
}

} // namespace brisolt::network

#include "device/network/peer_stream.h"

#include <cerrno>

#include "platform/error_text.h"
#include "platform/forked.h"
#include "platform/module.h"
#include "platform/mutex.h"
#include "platform/stream_socket.h"

namespace brisolt::network {

namespace {

constinit Mutex loading;
constinit const TlsModule* loadedModule = nullptr; // stays for the life of the process

/// The module, loaded by the first who needs it; null: `error` says what is missing.
const TlsModule* tlsModule(std::string& error) {
    forked::beginAnewInChild([] { loading.beginAnew(); });
    const MutexLock guard(loading);
    if (loadedModule != nullptr)
        return loadedModule;
    void* const module = module::load(tlsModuleName);
    if (module == nullptr) {
        error = "TLS needs the module libbrisolt-tls.so (Debian package libbrisolt-tls5): " + errorText();
        return nullptr;
    }
    const auto entry = reinterpret_cast<TlsModuleEntry>(module::find(module, tlsModuleEntry));
    const TlsModule* const found = entry != nullptr ? entry() : nullptr;
    if (found == nullptr || found->version != tlsModuleVersion) {
        error = "the module libbrisolt-tls.so belongs to another version of the library";
        return nullptr;
    }
    return loadedModule = found;
}

} // namespace

int32_t PeerStream::open(const Kind& kind, const Path& path, std::string& error) {
    if (kind.tls && (tls_ = tlsModule(error)) == nullptr)
        return -ENOENT;
    const clock::Deadline until = clock::Deadline::in(path.connectMs);
    socket_ = streams::connect(path.host, path.port, until, error);
    if (socket_ < 0)
        return socket_;
    return kind.tls ? shake(path, until, error) : 1;
}

int32_t PeerStream::shake(const Path& path, const clock::Deadline& until, std::string& error) {
    const TlsSettings settings{.ca = path.ca.c_str(),
                               .cert = path.cert.c_str(),
                               .key = path.key.c_str(),
                               .name = path.name.c_str(),
                               .verify = path.verify};
    TlsError why{};
    session_ = tls_->begin(socket_, &settings, &why);
    int32_t step = session_ != nullptr ? tlsWantsWrite : -EINVAL;
    while (step > 0) {
        step = tls_->shake(session_, &why);
        if (step == tlsDone)
            return 1;
        if (step > 0 && until.passed()) {
            error = "the far end has not answered in TLS in time";
            return -ETIMEDOUT;
        }
        if (step > 0)
            streams::wait({.socket = socket_,
                           .forRead = step == tlsWantsRead,
                           .forWrite = step == tlsWantsWrite,
                           .milliseconds = until.realMillisecondsLeft()});
    }
    error = why.text;
    return step;
}

void PeerStream::close() noexcept {
    if (session_ != nullptr)
        tls_->end(session_);
    if (socket_ >= 0)
        streams::close(socket_);
    session_ = nullptr;
    socket_ = -1;
}

int32_t PeerStream::read(void* buffer, int32_t count) noexcept {
    return session_ != nullptr ? tls_->read(session_, buffer, count) : streams::read(socket_, buffer, count);
}

int32_t PeerStream::write(const void* buffer, int32_t count) noexcept {
    return session_ != nullptr ? tls_->write(session_, buffer, count)
                               : streams::write(socket_, buffer, count);
}

bool PeerStream::flush() noexcept {
    return session_ == nullptr || tls_->flush(session_) == 0;
}

} // namespace brisolt::network

// What the library and its TLS module are to each other: the module offers one record of functions. It never waits:
// the library waits on the socket, which stays the library's.
#pragma once

#include <cstddef>
#include <cstdint>

namespace brisolt::network {

struct TlsSettings {
    const char *ca, *cert, *key; ///< files; "" the system's store, none
    const char* name;            ///< what the certificate must bear
    bool verify;
};

/// A text for people, which the module writes when something has failed.
struct TlsError {
    char text[512];
};

/// What a step of the handshake wants next.
enum TlsStep : int32_t { tlsDone = 1, tlsWantsRead = 2, tlsWantsWrite = 3 }; // else a negative error number

/// The functions of one session are never called by two threads at once.
struct TlsModule {
    uint32_t version; ///< of this record
    /// Null when the settings cannot be used.
    void* (*begin)(int32_t socket, const TlsSettings* settings, TlsError* error);
    int32_t (*shake)(void* session, TlsError* error);
    /// Bytes, 0 for none now, or a negative error number. Falls short of `count` only when no more are there.
    int32_t (*read)(void* session, void* buffer, int32_t count);
    /// Bytes taken, which are sure to go; 0 for no room now; or a negative error number.
    int32_t (*write)(void* session, const void* buffer, int32_t count);
    /// Sends on what was taken. Bytes left, or a negative error number.
    int32_t (*flush)(void* session);
    /// Whether bytes are there that the socket does not show.
    int32_t (*heldBack)(void* session);
    /// Says so to the far end, if that can be said at once.
    void (*end)(void* session);
};
inline constexpr uint32_t tlsModuleVersion = 1;
inline constexpr const char* tlsModuleName = "BRISOLT-TLS.DLL";
inline constexpr const char* tlsModuleEntry = "brisolt_tls_module";
using TlsModuleEntry = const TlsModule* (*)();

} // namespace brisolt::network

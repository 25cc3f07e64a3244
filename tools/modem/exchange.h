// Which modem has which number. An exchange is inside the process, or a folder that several processes share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include "descriptor.h"

namespace simulated {

/// What becomes of a call to a number.
enum class Fate {
    modem,  ///< a modem has the number
    nobody, ///< no such number: the exchange ends the call
    busy,   ///< always busy
    ringsForEver,
    noDialtone ///< not even a dial tone for who wants to dial it
};

/// Modems with an exchange in common can call one another. It must outlive them. Any thread may call.
///
/// In a folder each number is a file with the TCP port of its modem on the loopback address, which the modem
/// holds locked. The lock goes with the process however that ends, so a number whose file nobody holds is not
/// in service, and no process has to outlive another.
class Exchange {
public:
    /// Inside this process.
    Exchange() = default;
    /// Common to all processes that name the folder, which is made if need be. Throws std::runtime_error.
    explicit Exchange(std::filesystem::path folder);
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    /// What a number does from now on to those who call through this object; Fate::modem: as it really is.
    void set(const std::string& number, Fate fate);

    struct Route {
        Fate fate = Fate::nobody;
        uint16_t port = 0; ///< of the modem
    };
    Route find(const std::string& number) const;

    /// A modem takes a number, with the port at which it listens, and gives it back. Throws
    /// std::runtime_error when another has it or it is none.
    void enlist(const std::string& number, uint16_t port);
    void leave(const std::string& number);

    /// The digits of a text: 0 to 9, A to D, star and hash.
    static std::string digits(std::string_view text);

private:
    struct Entry {
        uint16_t port;
        Descriptor file; ///< locked; none without a folder
    };

    Descriptor lockedFile(const std::string& number, uint16_t port) const;
    uint16_t portInFolder(const std::string& number) const;

    const std::filesystem::path folder_;
    mutable std::mutex mutex_;
    std::map<std::string, Fate> fates_;
    std::map<std::string, Entry> entries_;
};

} // namespace simulated

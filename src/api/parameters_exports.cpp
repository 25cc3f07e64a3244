// Parameter records and profile files.
#include "brisolt/parameters.h"

#include <algorithm>
#include <cstring>

#include "api/border.h"
#include "params/parameter_records.h"
#include "params/profile_values.h"
#include "params/profiles.h"
#include "platform/error_text.h"
#include "platform/profile.h"
#include "script/notifications.h"
#include "stream/line_settings.h"

using namespace brisolt;
using profile::Encoding;

// ---- records

namespace {

template <class Parms, class Call> int32_t withRecord(int32_t port, Parms* parms, Call call) noexcept {
    return parms == nullptr ? -1 : onPort(port, -1, [=](Port& open) { return call(open, *parms); });
}

int32_t setPortParms(Port& port, const ComPortParms& parms) {
    storePortParms(port, parms);
    targetsChanged(port); // there are notification functions among the fields
    applyFraming(port);
    return 1;
}

} // namespace

BRISOLT_EXPORT int32_t ComGetPortParms(int32_t port, ComPortParms* parms) {
    return withRecord(port, parms, getPortParms);
}
BRISOLT_EXPORT int32_t ComSetPortParms(int32_t port, const ComPortParms* parms) {
    return withRecord(port, parms, setPortParms);
}
BRISOLT_EXPORT int32_t ComGetModemParms(int32_t port, ComModemParms* parms) {
    return withRecord(port, parms, getModemParms);
}
BRISOLT_EXPORT int32_t ComSetModemParms(int32_t port, const ComModemParms* parms) {
    return withRecord(port, parms, setModemParms);
}
BRISOLT_EXPORT int32_t ComGetAsciiParms(int32_t port, ComAsciiParms* parms) {
    return withRecord(port, parms, getAsciiParms);
}
BRISOLT_EXPORT int32_t ComSetAsciiParms(int32_t port, const ComAsciiParms* parms) {
    return withRecord(port, parms, setAsciiParms);
}

// ---- profiles

namespace {

/// Where a key stands. Incomplete with a null in it.
struct Address {
    const char* section;
    const char* key;
    const char* file;

    bool whole() const noexcept { return section != nullptr && key != nullptr && file != nullptr; }
    /// The value in a text that holds the file; none when the key is absent.
    std::optional<std::string_view> lookUp(std::string& text) const {
        if (!whole())
            return std::nullopt;
        text = profile::read(file).value_or("");
        return profile::find(text, section, key);
    }
};

// Without the memory for its text a file is one that cannot be read: it has no keys.

int32_t readValue(const Address& address, Encoding encoding, int32_t absent) noexcept {
    return guarded(profile::decode(encoding, std::nullopt, absent), [&] {
        std::string text;
        return profile::decode(encoding, address.lookUp(text), absent);
    });
}

/// f() for something whole; the error text says why there is nothing to write, or no memory for it.
template <class F> int32_t writing(bool whole, const char* file, F&& f) noexcept {
    if (!whole)
        setErrorTextFrom({"cannot write to a profile: a null section, key, record or file name"});
    return guarded(0, {"cannot write to ", whole ? file : "", ": no memory"},
                   [&] { return whole && f() ? 1 : 0; });
}

/// encode() is the text of the value, none when the key is to go.
template <class Encode> int32_t writeKey(const Address& address, Encode encode) noexcept {
    return writing(address.whole(), address.file, [&] {
        const profile::Change change{address.key, encode()};
        return profile::write(address.file, address.section, {&change, 1});
    });
}

int32_t writeValue(const Address& address, Encoding encoding, int32_t value) noexcept {
    return writeKey(address, [=] { return profile::encode(encoding, value); });
}

int32_t copyCut(std::string_view text, char* buffer, uint32_t capacity) noexcept {
    constexpr std::size_t longest = INT32_MAX;
    std::size_t length = std::min({text.size(), std::size_t{capacity} - 1, longest});
    std::memmove(buffer, text.data(), length);
    buffer[length] = 0;
    return static_cast<int32_t>(length);
}

template <class Parms> int32_t loadRecord(const char* section, Parms* parms, const char* file) noexcept {
    bool complete = section != nullptr && parms != nullptr && file != nullptr;
    return complete ? guarded(0, [=] { return profile::load(file, section, *parms) ? 1 : 0; }) : 0;
}

template <class Parms>
int32_t storeRecord(const char* section, const Parms* parms, const char* file, int32_t writeAll) noexcept {
    bool complete = section != nullptr && parms != nullptr && file != nullptr;
    return writing(complete, file, [=] { return profile::store(file, section, *parms, writeAll != 0); });
}

} // namespace

BRISOLT_EXPORT int32_t ComGetProfBool(const char* section, const char* key, int32_t defaultValue,
                                      const char* file) {
    return readValue({section, key, file}, Encoding::boolean, defaultValue);
}
BRISOLT_EXPORT int32_t ComGetProfInt(const char* section, const char* key, int32_t defaultValue,
                                     const char* file) {
    return readValue({section, key, file}, Encoding::integer, defaultValue);
}
BRISOLT_EXPORT int32_t ComGetProfLong(const char* section, const char* key, int32_t defaultValue,
                                      const char* file) {
    return readValue({section, key, file}, Encoding::prefixed, defaultValue);
}
BRISOLT_EXPORT int32_t ComGetProfChar(const char* section, const char* key, uint8_t defaultValue,
                                      const char* file) {
    return readValue({section, key, file}, Encoding::character, defaultValue);
}
BRISOLT_EXPORT int32_t ComGetProfString(const char* section, const char* key, const char* defaultText,
                                        char* buffer, uint32_t capacity, const char* file) {
    if (buffer == nullptr || capacity == 0)
        return 0;
    std::string text;
    auto value = guarded(std::nullopt, [&] { return Address{section, key, file}.lookUp(text); });
    return copyCut(value.value_or(defaultText == nullptr ? "" : defaultText), buffer, capacity);
}

BRISOLT_EXPORT int32_t ComWriteProfBool(const char* section, const char* key, int32_t value,
                                        const char* file) {
    return writeValue({section, key, file}, Encoding::boolean, value);
}
BRISOLT_EXPORT int32_t ComWriteProfInt(const char* section, const char* key, int32_t value,
                                       const char* file) {
    return writeValue({section, key, file}, Encoding::integer, value);
}
BRISOLT_EXPORT int32_t ComWriteProfLong(const char* section, const char* key, int32_t value,
                                        const char* file) {
    return writeValue({section, key, file}, Encoding::prefixed, value);
}
BRISOLT_EXPORT int32_t ComWriteProfChar(const char* section, const char* key, uint8_t value,
                                        const char* file) {
    return writeValue({section, key, file}, Encoding::character, value);
}
BRISOLT_EXPORT int32_t ComWriteProfString(const char* section, const char* key, const char* text,
                                          const char* file) {
    return writeKey({section, key, file},
                    [=] { return text == nullptr ? std::nullopt : std::optional<std::string>(text); });
}

BRISOLT_EXPORT int32_t ComGetProfPortParms(const char* section, ComPortParms* parms, const char* file) {
    return loadRecord(section, parms, file);
}
BRISOLT_EXPORT int32_t ComWriteProfPortParms(const char* section, const ComPortParms* parms, const char* file,
                                             int32_t writeAll) {
    return storeRecord(section, parms, file, writeAll);
}
BRISOLT_EXPORT int32_t ComGetProfModemParms(const char* section, ComModemParms* parms, const char* file) {
    return loadRecord(section, parms, file);
}
BRISOLT_EXPORT int32_t ComWriteProfModemParms(const char* section, const ComModemParms* parms,
                                              const char* file, int32_t writeAll) {
    return storeRecord(section, parms, file, writeAll);
}

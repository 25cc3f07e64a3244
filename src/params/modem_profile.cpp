#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "params/profile_values.h"
#include "params/profiles.h"
#include "platform/profile.h"

namespace brisolt::profile {

namespace {

struct TextKey {
    const char* name;
    std::size_t offset; ///< of the field in the record
    std::size_t size;   ///< of the field, terminator included
    const char* absent; ///< what an absent key means
    bool omissible;     ///< it need not be written when the field has just that
};
constexpr bool always = false;
constexpr bool omissible = true;

#define TEXT(name, field, absent, omitted)                                                  \
    TextKey {                                                                               \
        name, offsetof(ComModemParms, field), sizeof(ComModemParms::field), absent, omitted \
    }

/// In the order in which they are written; the dial time comes last.
constexpr TextKey texts[] = {
    TEXT("M_Initialization", initStr, "AT&F&C1&D2|", omissible),
    TEXT("M_DialString", dialStr, "ATDT", omissible),
    TEXT("M_DisconnectString", discStr, "+++~~~ATH0|", omissible),
    TEXT("M_AutoAnswerOffString", unsetAAStr, "ATS0=0|", omissible),
    TEXT("M_AutoAnswerOnString", setAAStr, "ATS0=1|", omissible),
    TEXT("M_ResetString", resetStr, "ATZ|", omissible),
    TEXT("M_Compression_ON_String", compressionOnStr, "ATS46=138|", always),
    TEXT("M_Compression_Off_String", compressionOffStr, "ATS46=136|", always),
    TEXT("M_FlowControl_Off", flowControlOffStr, "AT&K0|", always),
    TEXT("M_FlowControl_HDWR", flowControlHdwrStr, "AT&K3|", always),
    TEXT("M_FlowControl_SOFT", flowControlSoftStr, "AT&K4|", always),
    TEXT("M_ErrorControl_ON", errorControlOnStr, "AT&Q5S36=7S48=7|", always),
    TEXT("M_ErrorControl_OFF", errorControlOffStr, "AT&Q6S36=3S48=128|", always),
    TEXT("M_ErrorControl_FORCED", errorControlForcedStr, "AT&Q5S36=4S48=7|", always),
    TEXT("M_Modem_Name", modemName, "Hayes Compatible Standard", always),
};
#undef TEXT

constexpr const char* dialTimeKey = "M_DialTime";
constexpr int32_t absentDialTime = 60;

std::string_view fieldOf(const ComModemParms& parms, const TextKey& key) noexcept {
    const char* field = reinterpret_cast<const char*>(&parms) + key.offset;
    return {field, strnlen(field, key.size - 1)};
}

void setField(ComModemParms& parms, const TextKey& key, std::string_view text) noexcept {
    char* field = reinterpret_cast<char*>(&parms) + key.offset;
    std::memset(field, 0, key.size);
    std::memcpy(field, text.data(), std::min(text.size(), key.size - 1));
}

} // namespace

bool load(const char* file, std::string_view section, ComModemParms& parms) {
    ComModemParms loaded = parms;
    std::string text = read(file).value_or("");
    for (const TextKey& key : texts) {
        std::string_view value = find(text, section, key.name).value_or(key.absent);
        if (value.empty())
            return false;
        setField(loaded, key, value);
    }
    loaded.dialTimeout = decode(Encoding::integer, find(text, section, dialTimeKey), absentDialTime);
    if (loaded.dialTimeout == 0)
        return false;
    parms = loaded;
    return true;
}

bool store(const char* file, std::string_view section, const ComModemParms& parms, bool writeAll) {
    std::vector<Change> changes;
    auto add = [&](const char* name, std::string value, bool omitted) {
        changes.push_back({name, omitted && !writeAll ? std::nullopt : std::optional(std::move(value))});
    };
    for (const TextKey& key : texts) {
        std::string_view value = fieldOf(parms, key);
        add(key.name, std::string(value), key.omissible && value == key.absent);
    }
    add(dialTimeKey, encode(Encoding::integer, parms.dialTimeout), parms.dialTimeout == absentDialTime);
    return write(file, section, changes);
}

} // namespace brisolt::profile

// The progress record.
#include <algorithm>

#include "api/border.h"
#include "brisolt/progress.h"
#include "platform/file.h"
#include "transfer/progress.h"

using namespace brisolt;

namespace {

/// use(open port) for its effect.
template <class Use> int32_t change(int32_t port, int32_t done, Use use) noexcept {
    return onPort(port, -1, [=](Port& open) {
        use(open);
        return done;
    });
}

} // namespace

BRISOLT_EXPORT ComShowRecord* ComGetShow(int32_t port) {
    return onPort(port, nullptr, [](Port& open) { return &open.workArea->show; });
}

BRISOLT_EXPORT int32_t ComShowInit(int32_t port) {
    return change(port, 1, progress::clear);
}
BRISOLT_EXPORT int32_t ComShowClear(int32_t port) {
    return change(port, 1, progress::clear);
}
BRISOLT_EXPORT int32_t ComShowA(int32_t port) {
    return change(port, 0, [](Port& open) { progress::addBytes(open, 1); });
}

BRISOLT_EXPORT int32_t CSetTotal(int32_t port, const char* file) {
    if (file == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        int64_t size = file::Reader(file, file::Sharing::all).size();
        if (size < 0)
            return -1;
        auto total = static_cast<uint32_t>(std::min<int64_t>(size, UINT32_MAX));
        return progress::withRecord(open, [=](ComShowRecord& show) {
            show.total = total;
            return 0;
        });
    });
}

// ---- names

BRISOLT_EXPORT int32_t ComSetShowName(int32_t port, const char* name) {
    if (name == nullptr)
        return -1;
    return change(port, 1, [=](Port& open) { progress::setName(open, name); });
}
BRISOLT_EXPORT int32_t ComGetName(int32_t port, char* buffer) {
    if (buffer == nullptr)
        return -1;
    return change(port, 1, [=](Port& open) { progress::copyName(open, buffer); });
}
BRISOLT_EXPORT int32_t ComGetNameOnly(int32_t port, char* buffer) {
    if (buffer == nullptr)
        return -1;
    return change(port, 1, [=](Port& open) { progress::copyFilePart(open, buffer); });
}
BRISOLT_EXPORT int32_t ComSetTargetFileName(int32_t port, const char* name) {
    if (name == nullptr)
        return -1;
    return change(port, 1, [=](Port& open) { progress::setTargetName(open, name); });
}
BRISOLT_EXPORT int32_t ComGetTargetFileName(int32_t port, char* buffer) {
    if (buffer == nullptr)
        return -1;
    return change(port, 1, [=](Port& open) { progress::copyTargetName(open, buffer); });
}

// ---- numbers

#define GETTER(name, field, closed)                                                                \
    BRISOLT_EXPORT int32_t name(int32_t port) {                                                    \
        return onPort(port, closed, [](Port& open) {                                               \
            return progress::withRecord(                                                           \
                open, [](const ComShowRecord& show) { return static_cast<int32_t>(show.field); }); \
        });                                                                                        \
    }
#define SETTER(name, field)                                                                                \
    BRISOLT_EXPORT int32_t name(int32_t port, int32_t value) {                                             \
        return change(port, 1, [=](Port& open) {                                                           \
            progress::withRecord(open,                                                                     \
                                 [=](ComShowRecord& show) { show.field = static_cast<uint32_t>(value); }); \
        });                                                                                                \
    }

GETTER(ComGetBytes, bytes, -1)
GETTER(CGetShowABytes, bytes, -1)
GETTER(ComGetPackets, packets, -1)
GETTER(ComGetTotal, total, -1)
GETTER(CGetShowATotal, total, -1)
GETTER(ComGetSize, size, -1)
GETTER(ComGetErrors, errors, -1)
GETTER(ComGetErrorNo, errorNo, -1)
GETTER(ComGetState, state, -1)
GETTER(ComGetModTime, modTime, 0)
GETTER(ComGetTargetEnabled, targetEnabled, -1)
SETTER(ComSetTargetEnabled, targetEnabled)
GETTER(ComGetFileCompletionState, fileCompletionState, -1)
SETTER(ComSetFileCompletionState, fileCompletionState)

#undef GETTER
#undef SETTER

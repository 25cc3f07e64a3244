// A telephony service with modems that do what a test tells them. Left alone, each call is connected at once and
// every request succeeds. Its entry points are in service/module.cpp, which takes its script from here.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "support/pty.h"
#include "telephony/service_records.h"

namespace brisolt::test {

struct ScriptedModem {
    std::string name;
    uint32_t version = 0x10004;
    uint32_t bearerModes = service::bearer::voice | service::bearer::data;
    uint32_t mediaModes = service::media::dataModem;
    uint32_t lineFeatures = service::feature::lineMakeCall;
    uint32_t addressFeatures = service::feature::addressMakeCall;
    uint32_t nameFormat = service::stringFormat::plain;
    uint32_t nameOffset = sizeof(service::DeviceCapabilities);
};

/// There is one a process: the library binds to it for good.
struct ScriptedService {
    explicit ScriptedService(std::vector<ScriptedModem> devices);
    virtual ~ScriptedService();

    // ---- the script; before the calls that it is for
    std::vector<ScriptedModem> modems;
    uint32_t reportedDevices;
    /// The next calls of the entry point give these results and do nothing else; after them, `always`.
    void answer(const std::string& entry, std::deque<int32_t> results, int32_t always = 0) {
        const std::lock_guard lock(mutex);
        answers[entry] = {std::move(results), always};
    }
    /// Records need this many bytes more, each time they are asked for.
    std::function<uint32_t(uint32_t offered)> padding = [](uint32_t) { return 0U; };
    /// What becomes of a call that is placed; called on the thread that places it.
    std::function<void(uint32_t call)> onMakeCall;
    uint32_t reusedHandle = 0; ///< that of every call which is placed, unless 0
    /// The handle of a call; by default the line's pty, opened anew each time.
    std::function<int32_t(uint32_t device)> handleOf;

    // ---- what it tells the library
    /// A message, delivered to whichever thread lets messages through.
    virtual int32_t post(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2 = 0, uint32_t p3 = 0);
    /// The same at once, on this thread.
    void tell(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2 = 0, uint32_t p3 = 0);
    int32_t postState(uint32_t call, uint32_t state, uint32_t detail = 0, uint32_t privilege = 0) {
        return post(call, service::message::callState, state, detail, privilege);
    }
    void tellState(uint32_t call, uint32_t state, uint32_t privilege = 0) {
        tell(call, service::message::callState, state, 0, privilege);
    }
    /// A call comes in on the line; the handle of the call.
    uint32_t offer(uint32_t line);
    void ring(uint32_t line, uint32_t count) {
        post(line, service::message::lineDeviceState, service::deviceState::ringing, 0, count);
    }
    /// With its first ring.
    uint32_t callIn(uint32_t device) {
        const uint32_t call = offer(openLine(device));
        ring(openLine(device), 1);
        return call;
    }

    // ---- what it has seen
    Pty& lineOf(uint32_t device) {
        const std::lock_guard lock(mutex);
        return ptys[device];
    }
    /// The line that the library has open on the device; 0 none.
    uint32_t openLine(uint32_t device);
    std::size_t openLines() { return seen(lines).size(); }
    std::size_t liveCalls() { return seen(calls).size(); }
    int32_t count(const std::string& entry) { return seen(counts)[entry]; }
    template <class Field> Field seen(const Field& field) {
        const std::lock_guard lock(mutex);
        return field;
    }

    struct Call {
        uint32_t line, state;
    };
    std::recursive_mutex mutex; ///< for all that follows
    std::map<std::string, std::pair<std::deque<int32_t>, int32_t>> answers;
    std::map<std::string, int32_t> counts;
    std::map<uint32_t, uint32_t> lines; ///< handle, device
    std::map<uint32_t, Call> calls;
    std::vector<std::pair<uint32_t, uint32_t>> opened; ///< lines: the privileges and media of each
    std::vector<std::string> dialled;
    service::CallParameters lastParameters{};
    std::string lastDisplayable;
    uint32_t lastHandle = 0x100;
    service::Callback callback = nullptr;
    std::map<uint32_t, Pty> ptys;
    int32_t window = -1;
    std::map<uint32_t, std::array<uint32_t, 4>> waiting; ///< what was posted, by its number
    uint32_t lastWaiting = 0;
};

} // namespace brisolt::test

// A telephony service with modems that do what a test tells them. Left alone, each call is connected at once
// and every request succeeds.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "port/ports.h"
#include "support/pty.h"
#include "support/temp_dir.h"
#include "telephony/service/entry_points.h"

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
class ScriptedService {
public:
    using Entry = std::string; ///< the name of an entry point, as exported

    explicit ScriptedService(std::vector<ScriptedModem> devices = {{"Modem A"}, {"Modem B"}});
    ~ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    // ---- the script; before the calls that it is for
    std::vector<ScriptedModem> modems;
    uint32_t reportedDevices;
    /// The next calls of the entry point give these results and do nothing else.
    void answer(const Entry& entry, std::vector<int32_t> results);
    /// The same for every call from now on; 0 ends it.
    void answerAlways(const Entry& entry, int32_t result);
    /// Records need this many bytes more, each time they are asked for.
    std::function<uint32_t(uint32_t offered)> padding = [](uint32_t) { return 0U; };
    /// What becomes of a call that is placed; called on the thread that places it.
    std::function<void(uint32_t call)> onMakeCall;
    /// Called before the communications handle of a call is given.
    std::function<void()> onGetHandle = [] {};
    /// The handle of a call; by default the line's pty, opened anew each time.
    std::function<int32_t(uint32_t device)> handleOf;

    // ---- what it tells the library
    /// A message, delivered to whichever thread lets messages through.
    void post(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2 = 0, uint32_t p3 = 0);
    /// The same at once, on this thread.
    void tell(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2 = 0, uint32_t p3 = 0);
    void postState(uint32_t call, uint32_t state, uint32_t detail = 0, uint32_t privilege = 0) {
        post(call, service::message::callState, state, detail, privilege);
    }
    /// A call comes in on the line; the handle of the call.
    uint32_t offer(uint32_t line);
    void ring(uint32_t line, uint32_t count) {
        post(line, service::message::lineDeviceState, service::deviceState::ringing, 0, count);
    }

    // ---- what it has seen
    Pty& lineOf(uint32_t device);
    /// The line that the library has open on the device; 0 none.
    uint32_t openLine(uint32_t device) const;
    std::size_t openLines() const;
    std::size_t liveCalls() const;
    std::vector<std::string> dialled() const;
    uint32_t lastCall() const;
    int32_t count(const Entry& entry) const;
    service::CallParameters lastParameters{};
    std::string lastDisplayable;

private:
    struct Call {
        uint32_t line, state;
    };

    int32_t scripted(const Entry& entry);
    uint32_t deviceOf(uint32_t line) const;
    uint32_t deviceOfCall(uint32_t call) const;
    void fillEntryPoints(EntryPoints& points);
    void fillCallEntryPoints(EntryPoints& points);
    int32_t fillCapabilities(uint32_t device, service::DeviceCapabilities& record);
    int32_t giveHandle(uint32_t call, service::VariableString& record);
    template <class Record, class Fill> int32_t fill(Record& record, Fill fixed);
    static void deliver(void* context, int32_t window, uint32_t message, uintptr_t first, intptr_t second);

    mutable std::mutex mutex_;
    std::map<Entry, std::deque<int32_t>> answers_;
    std::map<Entry, int32_t> always_;
    std::map<Entry, int32_t> counts_;
    std::map<uint32_t, uint32_t> lines_; ///< handle, device
    std::map<uint32_t, Call> calls_;
    std::map<uint32_t, std::unique_ptr<Pty>> ptys_;
    std::vector<std::string> dialled_;
    uint32_t lastHandle_ = 0x100;
    int32_t lastRequest_ = 0;
    service::Callback callback_ = nullptr;
    int32_t window_ = -1;
    EntryPoints* points_ = nullptr;
};

/// Telephony initialised over a scripted service, with its log, in quick time.
struct Telephony {
    explicit Telephony(std::vector<ScriptedModem> modems = {{"Modem A"}, {"Modem B"}})
        : service(std::move(modems)) {}
    ~Telephony();

    /// By default modems have time enough on the busiest machine.
    int32_t initialise(uint32_t waitSeconds = 500) {
        ComTAPI_SetModemWaitTime(waitSeconds);
        return ComTAPI_INIT(directory.file("log").c_str());
    }
    std::string log() const;
    /// How often the log has an entry that is exactly this text.
    int32_t logged(const std::string& entry) const;

    TempDir directory;
    FastClock fast;
    ScriptedService service;
};

} // namespace brisolt::test

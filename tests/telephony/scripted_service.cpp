#include "telephony/scripted_service.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <dlfcn.h>
#include <fcntl.h>

namespace brisolt::test {

using namespace service;

namespace {

struct Posted {
    uint32_t handle, message, p1, p2, p3;
};

EntryPoints& pointsOfModule() {
    void* module = dlopen(BRISOLT_TEST_SERVICE, RTLD_NOW);
    if (module == nullptr)
        throw std::runtime_error(dlerror());
    return *static_cast<EntryPoints*>(dlsym(module, "scriptedEntryPoints"));
}

} // namespace

ScriptedService::ScriptedService(std::vector<ScriptedModem> devices)
    : modems(std::move(devices)), reportedDevices(static_cast<uint32_t>(modems.size())),
      points_(&pointsOfModule()) {
    ComHostMapModule(moduleName, BRISOLT_TEST_SERVICE);
    window_ = ComHostCreateSharedWindow(deliver, this);
    onMakeCall = [this](uint32_t call) { postState(call, callState::connected); };
    handleOf = [this](uint32_t device) {
        return ::open(lineOf(device).slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    };
    fillEntryPoints(*points_);
    fillCallEntryPoints(*points_);
}

ScriptedService::~ScriptedService() {
    ComHostDestroyWindow(window_);
}

// ---- the script

void ScriptedService::answer(const Entry& entry, std::vector<int32_t> results) {
    std::lock_guard lock(mutex_);
    answers_[entry] = {results.begin(), results.end()};
}

void ScriptedService::answerAlways(const Entry& entry, int32_t result) {
    std::lock_guard lock(mutex_);
    always_[entry] = result;
}

/// Counts the call. What the script has for it; 0: the usual.
int32_t ScriptedService::scripted(const Entry& entry) {
    std::lock_guard lock(mutex_);
    ++counts_[entry];
    auto& waiting = answers_[entry];
    if (waiting.empty())
        return always_[entry];
    int32_t result = waiting.front();
    waiting.pop_front();
    return result;
}

// ---- messages

void ScriptedService::deliver(void* context, int32_t, uint32_t, uintptr_t first, intptr_t) {
    std::unique_ptr<Posted> posted(reinterpret_cast<Posted*>(first));
    auto& self = *static_cast<ScriptedService*>(context);
    self.tell(posted->handle, posted->message, posted->p1, posted->p2, posted->p3);
}

void ScriptedService::post(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2, uint32_t p3) {
    auto posted = std::make_unique<Posted>(Posted{handle, message, p1, p2, p3});
    if (ComHostPostMessage(window_, 1, reinterpret_cast<uintptr_t>(posted.get()), 0) == 1)
        (void)posted.release();
}

void ScriptedService::tell(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2, uint32_t p3) {
    Callback callback = nullptr;
    {
        std::lock_guard lock(mutex_);
        callback = callback_;
        if (auto call = calls_.find(handle); message == message::callState && call != calls_.end())
            call->second.state = p1;
    }
    callback(0 + handle, message, 0, p1, p2, p3);
}

uint32_t ScriptedService::offer(uint32_t line) {
    uint32_t call = 0;
    {
        std::lock_guard lock(mutex_);
        call = ++lastHandle_;
        calls_[call] = {line, callState::offering};
    }
    postState(call, callState::offering, 0, privilege::owner);
    return call;
}

// ---- what it has seen

Pty& ScriptedService::lineOf(uint32_t device) {
    std::lock_guard lock(mutex_);
    auto& pty = ptys_[device];
    if (!pty)
        pty = std::make_unique<Pty>();
    return *pty;
}

uint32_t ScriptedService::deviceOf(uint32_t line) const {
    std::lock_guard lock(mutex_);
    auto found = lines_.find(line);
    return found == lines_.end() ? 0 : found->second;
}

uint32_t ScriptedService::deviceOfCall(uint32_t call) const {
    std::unique_lock lock(mutex_);
    auto found = calls_.find(call);
    uint32_t line = found == calls_.end() ? 0 : found->second.line;
    lock.unlock();
    return deviceOf(line);
}

uint32_t ScriptedService::openLine(uint32_t device) const {
    std::lock_guard lock(mutex_);
    auto found = std::ranges::find_if(lines_, [=](const auto& line) { return line.second == device; });
    return found == lines_.end() ? 0 : found->first;
}

std::size_t ScriptedService::openLines() const {
    std::lock_guard lock(mutex_);
    return lines_.size();
}

std::size_t ScriptedService::liveCalls() const {
    std::lock_guard lock(mutex_);
    return calls_.size();
}

std::vector<std::string> ScriptedService::dialled() const {
    std::lock_guard lock(mutex_);
    return dialled_;
}

uint32_t ScriptedService::lastCall() const {
    std::lock_guard lock(mutex_);
    return calls_.empty() ? 0 : calls_.rbegin()->first;
}

int32_t ScriptedService::count(const Entry& entry) const {
    std::lock_guard lock(mutex_);
    auto found = counts_.find(entry);
    return found == counts_.end() ? 0 : found->second;
}

// ---- the entry points

/// A record as a real service fills it: the fixed part, and what it would need for the rest.
template <class Record, class Fill> int32_t ScriptedService::fill(Record& record, Fill fixed) {
    uint32_t total = record.sizes.total;
    if (total < sizeof(Record))
        return result::recordTooSmall;
    fixed(record, total);
    record.sizes.needed = std::max(record.sizes.needed, uint32_t{sizeof(Record)}) + padding(total);
    record.sizes.used = sizeof(Record);
    return result::success;
}

int32_t ScriptedService::fillCapabilities(uint32_t device, DeviceCapabilities& record) {
    const ScriptedModem& modem = modems.at(device);
    return fill(record, [&](DeviceCapabilities& fixed, uint32_t total) {
        fixed.bearerModes = modem.bearerModes;
        fixed.mediaModes = modem.mediaModes;
        fixed.lineFeatures = modem.lineFeatures;
        fixed.nameFormat = modem.nameFormat;
        fixed.nameSize = static_cast<uint32_t>(modem.name.size()) + 1;
        fixed.nameOffset = modem.nameOffset;
        fixed.sizes.needed = sizeof fixed + fixed.nameSize;
        if (fixed.nameOffset == sizeof fixed && fixed.sizes.needed <= total)
            std::memcpy(reinterpret_cast<char*>(&fixed) + sizeof fixed, modem.name.c_str(), fixed.nameSize);
    });
}

void ScriptedService::fillEntryPoints(EntryPoints& points) {
    points.initialize = [this](uint32_t* application, void*, Callback callback, const char* name,
                               uint32_t* devices) {
        if (int32_t code = scripted("lineInitialize"))
            return code;
        std::lock_guard lock(mutex_);
        callback_ = callback;
        *application = std::strcmp(name, "Velloria") == 0 ? 0x77 : 0;
        *devices = reportedDevices;
        return result::success;
    };
    points.shutdown = [this](uint32_t) { return scripted("lineShutdown"); };
    points.negotiateVersion = [this](uint32_t, uint32_t device, uint32_t, uint32_t, uint32_t* version,
                                     ExtensionId*) {
        if (int32_t code = scripted("lineNegotiateAPIVersion"))
            return code;
        if (device >= modems.size())
            return result::code(0x02);
        *version = modems[device].version;
        return result::success;
    };
    points.getDeviceCapabilities = [this](uint32_t, uint32_t device, uint32_t, uint32_t,
                                          DeviceCapabilities* record) {
        int32_t code = scripted("lineGetDevCapsA");
        return code != 0 ? code : fillCapabilities(device, *record);
    };
    points.open = [this](uint32_t, uint32_t device, uint32_t* line, uint32_t, uint32_t, uintptr_t, uint32_t,
                         uint32_t, const CallParameters*) {
        if (int32_t code = scripted("lineOpenA"))
            return code;
        std::lock_guard lock(mutex_);
        *line = ++lastHandle_;
        lines_[*line] = device;
        return result::success;
    };
    points.close = [this](uint32_t line) {
        if (int32_t code = scripted("lineClose"))
            return code;
        std::lock_guard lock(mutex_);
        return lines_.erase(line) == 1 ? result::success : result::operationFailed;
    };
    points.setStatusMessages = [this](uint32_t, uint32_t, uint32_t) {
        return scripted("lineSetStatusMessages");
    };
    points.getAddressStatus = [this](uint32_t line, uint32_t, AddressStatus* record) {
        int32_t code = scripted("lineGetAddressStatusA");
        uint32_t features = modems[deviceOf(line)].addressFeatures;
        auto fixed = [=](AddressStatus& status, uint32_t) { status.addressFeatures = features; };
        return code != 0 ? code : fill(*record, fixed);
    };
    points.getAddressCapabilities = [this](uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                           AddressCapabilities* record) {
        int32_t code = scripted("lineGetAddressCapsA");
        return code != 0 ? code : fill(*record, [](AddressCapabilities&, uint32_t) {});
    };
}

int32_t ScriptedService::giveHandle(uint32_t call, VariableString& record) {
    onGetHandle();
    uint32_t device = deviceOfCall(call);
    return fill(record, [&](VariableString& fixed, uint32_t total) {
        fixed.stringFormat = stringFormat::binary;
        fixed.stringSize = sizeof(uint32_t);
        fixed.stringOffset = sizeof fixed;
        fixed.sizes.needed = sizeof fixed + fixed.stringSize;
        if (fixed.sizes.needed + padding(total) > total)
            return;
        int32_t handle = handleOf(device);
        std::memcpy(reinterpret_cast<char*>(&fixed) + sizeof fixed, &handle, sizeof handle);
    });
}

void ScriptedService::fillCallEntryPoints(EntryPoints& points) {
    points.getId = [this](uint32_t, uint32_t, uint32_t call, uint32_t select, VariableString* record,
                          const char*) {
        if (int32_t code = scripted(select == select::call ? "lineGetIDA of a call" : "lineGetIDA"))
            return code;
        return select == select::call ? giveHandle(call, *record)
                                      : fill(*record, [](VariableString&, uint32_t) {});
    };
    points.makeCall = [this](uint32_t line, uint32_t* call, const char* dialString, uint32_t,
                             const CallParameters* parameters) {
        if (int32_t code = scripted("lineMakeCallA"); code < 0)
            return code;
        std::unique_lock lock(mutex_);
        *call = ++lastHandle_;
        calls_[*call] = {line, 0};
        dialled_.emplace_back(dialString);
        lastParameters = *parameters;
        lastDisplayable.assign(reinterpret_cast<const char*>(parameters) +
                                   parameters->displayableAddressOffset,
                               parameters->displayableAddressSize);
        int32_t request = ++lastRequest_;
        uint32_t made = *call;
        lock.unlock();
        onMakeCall(made);
        return request;
    };
    points.answer = [this](uint32_t call, const char*, uint32_t) {
        if (int32_t code = scripted("lineAnswer"))
            return code;
        postState(call, callState::connected);
        return 1;
    };
    points.drop = [this](uint32_t call, const char*, uint32_t) {
        if (int32_t code = scripted("lineDrop"); code < 0)
            return code;
        postState(call, callState::idle);
        return 1;
    };
    points.deallocateCall = [this](uint32_t call) {
        if (int32_t code = scripted("lineDeallocateCall"))
            return code;
        std::lock_guard lock(mutex_);
        return calls_.erase(call) == 1 ? result::success : result::operationFailed;
    };
    points.getCallStatus = [this](uint32_t call, CallStatus* record) {
        int32_t code = scripted("lineGetCallStatus");
        std::unique_lock lock(mutex_);
        auto found = calls_.find(call);
        if (code == 0 && found == calls_.end())
            code = result::operationFailed;
        uint32_t state = code == 0 ? found->second.state : 0;
        lock.unlock();
        auto fixed = [=](CallStatus& status, uint32_t) { status.callState = state; };
        return code != 0 ? code : fill(*record, fixed);
    };
    points.setDeviceConfiguration = [this](uint32_t, const void*, uint32_t, const char*) {
        return scripted("lineSetDevConfigA");
    };
}

// ---- telephony over it

Telephony::~Telephony() {
    Com_TAPI_Shutdown();
}

std::string Telephony::log() const {
    std::ifstream file(directory.file("log"), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

int32_t Telephony::logged(const std::string& entry) const {
    std::string text = log() + "\r\n[";
    std::string wanted = " p129]" + entry + "\r\n[";
    int32_t count = 0;
    for (auto at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1))
        ++count;
    return count;
}

} // namespace brisolt::test

#include "telephony/scripted_service.h"

#include <algorithm>

#include <dlfcn.h>
#include <fcntl.h>

#include "brisolt_host.h"

namespace brisolt::test {

// A message itself has no room for all five words on every machine: they wait in the service.
static void deliver(void* service, int32_t, uint32_t message, uintptr_t first, intptr_t) {
    auto& own = *static_cast<ScriptedService*>(service);
    std::unique_lock lock(own.mutex);
    const auto words = own.waiting.extract(static_cast<uint32_t>(first)).mapped();
    lock.unlock();
    own.tell(words[0], message, words[1], words[2], words[3]);
}

ScriptedService::ScriptedService(std::vector<ScriptedModem> devices)
    : modems(std::move(devices)), reportedDevices(static_cast<uint32_t>(modems.size())),
      window(ComHostCreateSharedWindow(deliver, this)) {
    void* const module = dlopen(BRISOLT_TEST_SERVICE, RTLD_NOW);
    *static_cast<ScriptedService**>(dlsym(module, "scriptedService")) = this;
    ComHostMapModule(service::moduleName, BRISOLT_TEST_SERVICE);
    onMakeCall = [this](uint32_t call) { postState(call, service::callState::connected); };
    handleOf = [this](uint32_t device) {
        return ::open(lineOf(device).slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    };
}

ScriptedService::~ScriptedService() {
    ComHostDestroyWindow(window);
}

int32_t ScriptedService::post(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2, uint32_t p3) {
    std::lock_guard lock(mutex);
    waiting[++lastWaiting] = {handle, p1, p2, p3};
    return ComHostPostMessage(window, message, lastWaiting, 0);
}

void ScriptedService::tell(uint32_t handle, uint32_t message, uint32_t p1, uint32_t p2, uint32_t p3) {
    std::unique_lock lock(mutex);
    if (auto call = calls.find(handle); message == service::message::callState && call != calls.end())
        call->second.state = p1;
    service::Callback told = callback;
    lock.unlock();
    told(handle, message, 0, p1, p2, p3);
}

uint32_t ScriptedService::offer(uint32_t line) {
    std::lock_guard lock(mutex);
    uint32_t call = ++lastHandle;
    calls[call] = {line, service::callState::offering};
    postState(call, service::callState::offering, 0, service::privilege::owner);
    return call;
}

uint32_t ScriptedService::openLine(uint32_t device) {
    std::lock_guard lock(mutex);
    auto found = std::ranges::find_if(lines, [=](const auto& line) { return line.second == device; });
    return found == lines.end() ? 0 : found->first;
}

} // namespace brisolt::test

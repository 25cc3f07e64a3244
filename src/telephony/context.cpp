#include "telephony/context.h"

#include <atomic>

#include "diag/debug_logs.h"
#include "platform/module.h"
#include "port/port_table.h"
#include "telephony/call_messages.h"
#include "telephony/hang_up.h"
#include "telephony/service_binding.h"
#include "telephony/service_calls.h"
#include "telephony/usable_line.h"
#include "virtual/virtual_ports.h"

namespace brisolt::telephony {

namespace {

constexpr const char* applicationName = "Velloria";

constexpr uint32_t leastWaitTime = 10000; ///< milliseconds, like the next two
constexpr uint32_t mostWaitTime = 500000;
constexpr uint32_t usualWaitTime = 90000;

std::atomic<uint32_t> waitTime{0};
std::atomic<uint32_t> application{0};
std::atomic<uint32_t> reportedDevices{0};
std::atomic<bool> initialising{false};

/// An initialisation in progress: there is one at a time.
class Turn {
public:
    Turn() noexcept : taken_(!initialising.exchange(true)) {}
    ~Turn() {
        if (taken_)
            initialising = false;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    explicit operator bool() const noexcept { return taken_; }

private:
    bool taken_;
};

/// The outcome for what the service answers.
int32_t registrationOutcome(int32_t code) {
    switch (code) {
    case service::result::success: return 1;
    case service::result::reinitialising: return -1;
    case service::result::noDevices:
        log("There are no devices configured for Telephony use. Install a Modem using the Control Panel");
        return -2;
    default: log("lineInitialize unhandled error: %d", code); return -3;
    }
}

int32_t registerWithService() {
    if (application != 0)
        return 1;
    uint32_t handle = 0;
    uint32_t devices = 0;
    Answer answer = callService([&] {
        return service::lineInitialize(&handle, module::program(), lineCallbackFunc, applicationName,
                                       &devices);
    });
    int32_t outcome = registrationOutcome(answer.result);
    if (answer.ok) {
        application = handle;
        reportedDevices = devices;
    }
    return outcome;
}

void setUpLog(const char* logFile) {
    if (logFile == nullptr || *logFile == '\0')
        return;
    if (HeldPort context(contextPort); context)
        logs::switchTo(*context, logs::Log::debug, logFile, "TAPI LOG BEGIN");
}

void enter(int32_t index) {
    TelephonyDevice& device = allDevices()[static_cast<std::size_t>(index)];
    device.devicePort = firstDevicePort + index;
    device.deviceId = static_cast<uint32_t>(index);
    device.connected = 0;
    char name[lineNameSize];
    copyLineName(device, name);
    log("Equiped TAPI Port Device: %d Name: %s Virt_Port: %d", index, name, firstDevicePort + index);
}

/// The unbroken run of usable devices: the first that is not ends the table.
int32_t enumerate() {
    if (probe(0) != Probe::usable) {
        setLineName(allDevices()[0], "", 0);
        return -1;
    }
    enter(0);
    int32_t count = 1;
    while (count < deviceLimit && probe(count) == Probe::usable)
        enter(count++);
    setDeviceCount(count);
    return count;
}

int32_t setUp(const char* logFile) {
    uint32_t time = waitTime;
    if (time < leastWaitTime || time > mostWaitTime)
        waitTime = usualWaitTime;
    setUpLog(logFile);
    if (int32_t outcome = registerWithService(); outcome < 0)
        return outcome;
    setDeviceCount(reportedDevices);
    return enumerate();
}

} // namespace

int32_t initialise(const char* logFile) {
    Turn turn;
    if (!turn)
        return -1;
    if (initialised())
        return -2;
    if (application != 0)
        releaseAll();
    clearTable();
    if (openVirtual(contextPort) != contextPort)
        return -1;
    try {
        return setUp(logFile);
    } catch (...) { // no memory: as if it had never been opened
        shutDown();
        return -1;
    }
}

int32_t shutDown() {
    log("Com_TAPI_Shutdown");
    HeldPort context(contextPort);
    if (!context)
        return 1;
    uint32_t handle = application.exchange(0); // before the port: whoever initialises next has his own
    closeVirtual(*context);
    if (handle != 0)
        callService([=] { return service::lineShutdown(handle); });
    return 1;
}

bool initialised() noexcept {
    HeldPort context(contextPort);
    return context && context->isOpen();
}

uint32_t applicationHandle() noexcept {
    return application;
}

void setModemWaitTime(uint32_t seconds) noexcept {
    waitTime = seconds > UINT32_MAX / 1000 ? UINT32_MAX : seconds * 1000;
}

uint32_t modemWaitTime() noexcept {
    return waitTime;
}

} // namespace brisolt::telephony

#include "support/scripted_driver.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "platform/clock.h"

namespace brisolt::test {
namespace {

constexpr auto patience = std::chrono::seconds(10);

template <class... Values> std::string text(const char* format, Values... values) {
    char line[160];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

std::string describe(const ComHostLineState& state) {
    return text("setLineState %u %u/%u/%u flags %04x limits %u %u chars %02x %02x %02x %02x %02x",
                state.baudRate, state.dataBits, state.parity, state.stopBits, state.flags, state.xonLimit,
                state.xoffLimit, state.xonChar, state.xoffChar, state.errorChar, state.eofChar,
                state.eventChar);
}

std::string describe(const ComHostTimeouts& times) {
    const auto number = [](uint32_t value) { return static_cast<int32_t>(value); }; // all ones: -1
    return text("setTimeouts %d %d %d %d %d", number(times.readInterval), number(times.readMultiplier),
                number(times.readConstant), number(times.writeMultiplier), number(times.writeConstant));
}

} // namespace

ScriptedDriver::ScriptedDriver(const std::string& scheme, Waits waits, Counts counts)
    : scheme_(scheme), handle_(readable_.descriptor()) {
    state_ = {.size = sizeof state_,
              .baudRate = 300,
              .flags = 0,
              .xonLimit = 1,
              .xoffLimit = 2,
              .dataBits = 7,
              .parity = COM_HOST_PARITY_ODD,
              .stopBits = COM_HOST_STOP_2,
              .xonChar = 1,
              .xoffChar = 2,
              .errorChar = 3,
              .eofChar = 4,
              .eventChar = 5};
    properties_.size = sizeof properties_;
    properties_.maxBaud = 1'000'000;
    properties_.provCapabilities = COM_HOST_CAN_PARITY_CHECK;
    showEvents();
    const ComHostDriver driver = record(*this, waits, counts);
    EXPECT_EQ(ComHostRegisterDriver(scheme.c_str(), &driver), 1);
}

ScriptedDriver::~ScriptedDriver() {
    std::unique_lock guard(lock_);
    EXPECT_TRUE(changed_.wait_for(guard, patience, [this] { return devices_ == 0; }))
        << "a device is still open";
}

ComHostDriver ScriptedDriver::record(ScriptedDriver& driver, Waits waits, Counts counts) {
    using enum Call;
    ComHostDriver made{};
    made.size = sizeof made;
    made.context = &driver;
    made.open = [](void* context, const char*, void** device, int32_t* handle) {
        return of(context).open(device, handle);
    };
    made.close = [](void* device) {
        of(device).enter(close, "close");
        const std::scoped_lock guard(of(device).lock_);
        --of(device).devices_;
        of(device).changed_.notify_all();
    };
    made.properties = [](void* device, ComHostProperties* properties) {
        const bool works = of(device).enter(Call::properties, "properties");
        *properties = of(device).load(of(device).properties_);
        return works ? 1 : -EIO;
    };
    made.getLineState = [](void* device, ComHostLineState* state) {
        const bool works = of(device).enter(getLineState, "getLineState");
        *state = of(device).lineState();
        return works ? 1 : -EIO;
    };
    made.setLineState = [](void* device, const ComHostLineState* state) {
        if (!of(device).enter(Call::setLineState, describe(*state)))
            return -EIO;
        of(device).setLineState(*state);
        return 1;
    };
    made.getTimeouts = [](void* device, ComHostTimeouts* timeouts) {
        const bool works = of(device).enter(getTimeouts, "getTimeouts");
        *timeouts = of(device).load(of(device).timeouts_);
        return works ? 1 : -EIO;
    };
    made.setTimeouts = [](void* device, const ComHostTimeouts* timeouts) {
        return of(device).setting(setTimeouts, describe(*timeouts));
    };
    made.setQueues = [](void* device, uint32_t inSize, uint32_t outSize) {
        return of(device).setting(setQueues, text("setQueues %u %u", inSize, outSize));
    };
    made.setEventMask = [](void* device, uint32_t events) {
        return of(device).setting(setEventMask, text("setEventMask %x", events));
    };
    made.purge = [](void* device, uint32_t what) {
        const int32_t result = of(device).setting(purge, text("purge %x", what));
        const std::scoped_lock guard(of(device).lock_);
        if ((what & COM_HOST_PURGE_RX) != 0)
            of(device).input_.clear();
        of(device).showEvents();
        return result;
    };
    made.line = [](void* device, uint32_t function) {
        return of(device).setting(line, text("line %u", function));
    };
    made.modemStatus = [](void* device, uint32_t* lines) {
        const bool works = of(device).enter(modemStatus, "modemStatus");
        *lines = of(device).load(of(device).modemLines_);
        return works ? 1 : -EIO;
    };
    made.status = [](void* device, uint32_t, ComHostStatus* status) {
        if (!of(device).enter(Call::status))
            return -EIO;
        const std::scoped_lock guard(of(device).lock_);
        status->inQueue = static_cast<uint32_t>(of(device).input_.size());
        status->outQueue = of(device).outQueue_;
        return 1;
    };
    made.read = [](void* device, void* buffer, int32_t count) { return of(device).read(buffer, count); };
    made.write = [](void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) {
        return of(device).write(buffer, count, how, error);
    };
    made.flush = [](void* device) { return of(device).setting(flush, "flush"); };
    if (waits == Waits::yes)
        made.wait = [](void* device, uint32_t events, int32_t wake, int32_t milliseconds) {
            return of(device).wait(events, wake, milliseconds);
        };
    made.state = [](void* device) -> int32_t {
        return of(device).load(of(device).gone_) ? COM_HOST_DEVICE_GONE : COM_HOST_DEVICE_THERE;
    };
    if (counts == Counts::yes)
        made.counters = [](void* device, ComHostCounters* counters) {
            counters->cts = of(device).load(of(device).ctsChanges_);
            return 1;
        };
    made.cancel = [](void* device, int32_t on) {
        of(device).enter(cancel, text("cancel %d", on));
        const std::scoped_lock guard(of(device).lock_);
        of(device).cancelled_ = on != 0;
        of(device).changed_.notify_all();
    };
    return made;
}

void ScriptedDriver::feed(std::string_view bytes) {
    const std::scoped_lock guard(lock_);
    input_.insert(input_.end(), bytes.begin(), bytes.end());
    showEvents();
}

int64_t ScriptedDriver::total() const {
    const std::scoped_lock guard(lock_);
    return std::accumulate(counts_.begin(), counts_.end(), int64_t{0});
}

void ScriptedDriver::forgetCalls() {
    const std::scoped_lock guard(lock_);
    counts_ = {};
    settings_.clear();
    written_.clear();
    writeSizes_.clear();
}

// ---- The device --------------------------------------------------------------------------------------

bool ScriptedDriver::enter(Call call, const std::string& text) {
    std::unique_lock guard(lock_);
    const auto index = static_cast<std::size_t>(call);
    ++counts_[index];
    if (!text.empty())
        settings_ += text + '\n';
    Refusal& refusal = refusals_[index];
    bool works = true;
    if (refusal.after > 0)
        --refusal.after;
    else if (refusal.times > 0) {
        works = false;
        refusal.times -= refusal.times == always ? 0 : 1;
    }
    const auto pause = delays_[index];
    guard.unlock();
    if (pause.count() > 0)
        std::this_thread::sleep_for(pause);
    return works;
}

int32_t ScriptedDriver::setting(Call call, const std::string& text) {
    return enter(call, text) ? 1 : -EIO;
}

int32_t ScriptedDriver::open(void** device, int32_t* handle) {
    if (!enter(Call::open, "open"))
        return -EACCES;
    const std::scoped_lock guard(lock_);
    ++devices_;
    cancelled_ = false;
    *device = this;
    *handle = handle_;
    return 1;
}

int32_t ScriptedDriver::read(void* buffer, int32_t count) {
    if (!enter(Call::read))
        return -EIO;
    const std::scoped_lock guard(lock_);
    const auto held = static_cast<std::ptrdiff_t>(input_.size());
    const auto taken = std::min<std::ptrdiff_t>({count, readLimit_, held});
    std::copy_n(input_.begin(), taken, static_cast<char*>(buffer));
    input_.erase(input_.begin(), input_.begin() + taken);
    showEvents();
    return static_cast<int32_t>(taken);
}

int32_t ScriptedDriver::write(const void* buffer, int32_t count, uint32_t how, int32_t* error) {
    const bool works = enter(Call::write);
    std::unique_lock guard(lock_);
    writeSizes_.push_back(count);
    *error = works ? 0 : EIO;
    if (!works)
        return 0;
    ++writers_;
    if (how == COM_HOST_WRITE_COMPLETE && holds_)
        changed_.wait(guard, [this] { return room_ > 0 || (cancelled_ && !ignoresCancel_); });
    --writers_;
    const auto taken = std::min<int64_t>({count, takeLimit_, room_});
    written_.append(static_cast<const char*>(buffer), static_cast<std::size_t>(taken));
    room_ -= room_ == unlimited ? 0 : taken;
    showEvents();
    return static_cast<int32_t>(taken);
}

uint32_t ScriptedDriver::holding() const {
    return (input_.empty() ? 0U : uint32_t{COM_HOST_WAIT_READ}) |
           (room_ > 0 ? uint32_t{COM_HOST_WAIT_WRITE} : 0U);
}

int32_t ScriptedDriver::wait(uint32_t events, int32_t wake, int32_t milliseconds) {
    if (!enter(Call::wait))
        return -EIO;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    const auto limit = milliseconds < 0 ? clock::Deadline::never() : clock::Deadline::at(end);
    for (bool called = false;;) {
        {
            const std::scoped_lock guard(lock_);
            const uint32_t held = holding() & events;
            if (held != 0 || called || limit.passed())
                return static_cast<int32_t>(held);
        }
        const auto watch = [](bool wanted, int32_t descriptor) {
            Watch made;
            made.descriptor = wanted ? descriptor : -1;
            made.forRead = true;
            return made;
        };
        std::array<Watch, 3> watches{watch((events & COM_HOST_WAIT_READ) != 0, readable_.descriptor()),
                                     watch((events & COM_HOST_WAIT_WRITE) != 0, writable_.descriptor()),
                                     watch(true, wake)};
        waitAny(watches, limit.realMillisecondsLeft());
        called = watches[2].readable || watches[2].hungUp;
    }
}

void ScriptedDriver::showEvents() {
    const uint32_t held = holding();
    (held & COM_HOST_WAIT_READ) != 0 ? readable_.set() : readable_.clear();
    (held & COM_HOST_WAIT_WRITE) != 0 ? writable_.set() : writable_.clear();
    changed_.notify_all();
}

} // namespace brisolt::test

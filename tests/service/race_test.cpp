// Many threads at one service: whatever they do to each other's lines and calls, all of it ends.
#include <atomic>
#include <random>

#include "telephony_program.h"

using namespace brisolt::test;
namespace service_ = brisolt::service;

namespace {

struct Races : TwoModems {
    std::atomic<uint32_t> lines[2] = {};
    std::atomic<uint32_t> calls[2] = {};

    void disturb(unsigned seed, const std::atomic<bool>& over) {
        std::minstd_rand random(seed);
        ComHostMessage message{};
        while (!over) {
            const unsigned which = static_cast<unsigned>(random() >> 4) % 2;
            uint32_t handle = 0;
            switch ((random() >> 4) % 8) {
            case 0:
                if (service.open(application, which, &handle, 0, 0, reinterpret_cast<uintptr_t>(&service),
                                 service_::privilege::owner, service_::media::dataModem, nullptr) == 0)
                    lines[which] = handle;
                break;
            case 1:
                if (service.makeCall(lines[which], &handle, "T200", 0, nullptr) > 0)
                    calls[which] = handle;
                break;
            case 2: service.drop(calls[which], nullptr, 0); break;
            case 3: service.deallocate(calls[which]); break;
            case 4:
                if (random() % 4 == 0)
                    service.close(lines[which]);
                break;
            case 5: stateOf(calls[which]); break;
            default:
                if (service.getMessage(&message, 1 + static_cast<int32_t>(random() % 20)) == 1)
                    service.dispatch(&message);
            }
        }
    }
};

/// Called by any thread, one at a time.
void answerAll(uint32_t device, uint32_t message, uintptr_t instance, uintptr_t state, uintptr_t, uintptr_t) {
    if (message != service_::message::callState)
        return;
    const auto& module = *reinterpret_cast<const ServiceModule*>(instance);
    if (state == service_::callState::offering)
        module.answer(device, nullptr, 0);
    service_::CallStatus status{};
    status.sizes.total = sizeof status;
    module.callStatus(device, &status);
}

} // namespace

TEST_F(Races, ThreadsThatDoEverythingAtOnce) {
    ASSERT_EQ(service.shutdown(application), 0);
    ASSERT_EQ(service.initialize(&application, nullptr, answerAll, "race", &devices), 0);
    testing::internal::CaptureStderr(); // a modem may be talked to while it is in a call
    std::atomic<bool> over = false;
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed)
        threads.emplace_back([this, seed, &over] { disturb(seed, over); });
    std::this_thread::sleep_for(Milliseconds(4000));
    EXPECT_EQ(service.shutdown(application), 0);
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(service.close(lines[0]), service_::result::badLine);
    testing::internal::GetCapturedStderr();

    EXPECT_EQ(start(), 0) << "and it can be used again";
    uint32_t line = 0;
    EXPECT_EQ(openLine(0, line), 0);
}

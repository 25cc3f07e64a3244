#include "simulator.h"

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include <sys/eventfd.h>

#include "host_failure.h"

#include "modem.h"

namespace simulated {

struct Simulator::Inside {
    Inside(std::unique_ptr<Line> itsLine, Exchange& exchange, const Options& options)
        : failed(options.failed), line(std::move(itsLine)), clock(options.timeScale),
          telephone(exchange, options.number), modem(*line, telephone, exchange, clock, options) {
        if (!called)
            failHost("event");
    }

    void run();
    void live();
    void wake() const { eventfd_write(called.get(), 1); }
    /// Changes something of the modem, which then looks at it.
    template <typename Change> void change(Change change) {
        const std::lock_guard guard(mutex);
        change(modem);
        wake();
    }

    mutable std::mutex mutex; ///< the modem and its parts, but while its thread polls
    mutable std::condition_variable turned;
    Descriptor called{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    bool stop = false;
    std::exception_ptr failure; ///< what has ended its thread
    std::function<void()> failed;

    std::unique_ptr<Line> line;
    Clock clock;
    Telephone telephone;
    Modem modem;
    std::thread thread;
};

void Simulator::Inside::run() {
    // Signals belong to the program.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    line->enter();
    try {
        live();
    } catch (...) {
        {
            const std::lock_guard guard(mutex);
            failure = std::current_exception();
            telephone.hangUp();
            turned.notify_all();
        }
        if (failed)
            failed();
    }
}

void Simulator::Inside::live() {
    std::unique_lock guard(mutex);
    std::vector<pollfd> entries;
    while (!stop) {
        modem.turn();
        turned.notify_all();
        entries.assign(1, {called.get(), POLLIN, 0});
        const int patience = modem.watch(entries);
        guard.unlock();
        if (poll(entries.data(), entries.size(), patience) < 0 && errno != EINTR)
            failHost("waiting for the line");
        guard.lock();
        eventfd_t calls = 0;
        eventfd_read(called.get(), &calls);
    }
}

Simulator::Simulator(std::unique_ptr<Line> line, Exchange& exchange, const Options& options)
    : inside_(std::make_unique<Inside>(std::move(line), exchange, options)) {
    inside_->thread = std::thread([inside = inside_.get()] { inside->run(); });
}

Simulator::~Simulator() {
    inside_->change([this](Modem&) { inside_->stop = true; });
    inside_->thread.join();
}

const std::string& Simulator::path() const {
    return inside_->line->path();
}

Status Simulator::status() const {
    const std::lock_guard guard(inside_->mutex);
    return inside_->modem.status();
}

bool Simulator::waitFor(Phase phase, Milliseconds limit) const {
    std::unique_lock guard(inside_->mutex);
    const auto reached = [&] { return inside_->modem.status().phase == phase; };
    inside_->turned.wait_for(guard, limit, [&] { return reached() || inside_->failure != nullptr; });
    return reached();
}

void Simulator::rethrowFailure() const {
    const std::lock_guard guard(inside_->mutex);
    if (inside_->failure)
        std::rethrow_exception(inside_->failure);
}

std::vector<std::string> Simulator::commands() const {
    const std::lock_guard guard(inside_->mutex);
    return inside_->modem.commands();
}

void Simulator::add(const Fault& fault) {
    inside_->change([&](Modem& modem) { modem.faults.add(fault); });
}

void Simulator::clearFaults() {
    inside_->change([](Modem& modem) { modem.faults.clear(); });
}

void Simulator::setNoise(std::size_t every) {
    inside_->change([&](Modem& modem) { modem.noise.setEvery(every); });
}

void Simulator::dropAfterBytes(std::size_t bytes) {
    inside_->change([&](Modem& modem) { modem.dropAfterBytes = bytes; });
}

void Simulator::dropAfter(Milliseconds time) {
    inside_->change([&](Modem& modem) { modem.setDropAfter(time); });
}

void Simulator::dropNow() {
    inside_->change([](Modem& modem) { modem.dropLine(); });
}

} // namespace simulated

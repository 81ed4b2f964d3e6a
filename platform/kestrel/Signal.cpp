#include "platform/kestrel/Signal.h"

#include <csignal>
#include <mutex>
#include <thread>

namespace Kestrel {

namespace {

constexpr SignalType termination = 0;

/// Never destroyed: the signal thread outlives main.
struct State {
    std::mutex mutex; ///< guards what follows; held during a handler's call
    bool taken = false;
    bool pending = false;
    Signal::SignalHandler* handler = nullptr;
};

State& state() {
    static State* const instance = new State;
    return *instance;
}

void deliver() {
    State& shared = state();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    if (shared.handler)
        shared.handler->handleSignal();
    else
        shared.pending = true;
}

sigset_t terminationSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

} // namespace

Signal Signal::the;

void Signal::takeOver() {
    State& shared = state();
    {
        const std::lock_guard<std::mutex> lock(shared.mutex);
        if (shared.taken)
            return;
        shared.taken = true;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const sigset_t signals = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        for (;;) {
            int number = 0;
            if (sigwait(&signals, &number) == 0)
                deliver();
        }
    }).detach();
}

void Signal::addSignalHandler(SignalType type, SignalHandler& handler) {
    if (type != termination)
        return;
    State& shared = state();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.handler = &handler;
    if (shared.pending) {
        shared.pending = false;
        handler.handleSignal();
    }
}

void Signal::removeSignalHandler(SignalType type) {
    if (type != termination)
        return;
    State& shared = state();
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.handler = nullptr;
}

} // namespace Kestrel

#include "platform/kestrel/Signal.h"

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

namespace Kestrel {

namespace {

constexpr SignalType termination = 0;

/// The handler and what waits for it. Never destroyed: the signal thread outlives main.
class Delivery {
public:
    static Delivery& the() {
        static Delivery* const instance = new Delivery;
        return *instance;
    }

    void signal() {
        std::unique_lock<std::mutex> lock(mutex);
        pending = true;
        deliver(lock);
    }

    void setHandler(Signal::SignalHandler* newHandler) {
        std::unique_lock<std::mutex> lock(mutex);
        handler = newHandler;
        // The call under way may be one of the handler before. A handler that takes itself away
        // can't wait for its own end.
        callEnded.wait(lock, [this] { return !calling || caller == std::this_thread::get_id(); });
        deliver(lock);
    }

private:
    /// Calls the handler with no lock held; two calls never overlap.
    void deliver(std::unique_lock<std::mutex>& lock) {
        while (pending && handler && !calling) {
            pending = false;
            calling = true;
            caller = std::this_thread::get_id();
            Signal::SignalHandler* const target = handler;
            lock.unlock();
            target->handleSignal();
            lock.lock();
            calling = false;
            callEnded.notify_all();
        }
    }

    std::mutex mutex; ///< guards what follows
    std::condition_variable callEnded;
    Signal::SignalHandler* handler = nullptr;
    bool pending = false; ///< a signal has not been delivered yet
    bool calling = false; ///< a thread is inside the handler
    std::thread::id caller;
};

sigset_t terminationSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

void readSignals() {
    const sigset_t signals = terminationSignals();
    for (;;) {
        int number = 0;
        if (sigwait(&signals, &number) == 0)
            Delivery::the().signal();
    }
}

} // namespace

Signal Signal::the;

void Signal::takeOver() {
    static std::once_flag taken;
    std::call_once(taken, [] {
        const sigset_t signals = terminationSignals();
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        // A starter may have handed down that it is ignored: then the system itself would reap
        // ended tools, and their exit codes would be lost.
        std::signal(SIGCHLD, SIG_DFL);
        std::thread(readSignals).detach();
    });
}

void Signal::addSignalHandler(SignalType type, SignalHandler& handler) {
    if (type == termination)
        Delivery::the().setHandler(&handler);
}

void Signal::removeSignalHandler(SignalType type) {
    if (type == termination)
        Delivery::the().setHandler(nullptr);
}

} // namespace Kestrel

#include "platform/portico/IoCore.h"

#include "platform/portico/StallMonitor.h"

#include <exception>
#include <system_error>
#include <utility>

namespace Portico {

IoCore::IoCore(StallMonitor& watcher, Report failureReport)
    : monitor(watcher), report(std::move(failureReport)), work(io.get_executor()) {}

IoCore::~IoCore() {
    stop();
}

void IoCore::start() {
    const std::lock_guard<std::mutex> lock(mutex);
    running.fetch_add(1);
    threads.emplace_back([this] { run(); });
}

void IoCore::stop() {
    std::vector<std::thread> joined;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        joined.swap(threads);
    }
    io.stop();
    released.notify_all();
    for (std::thread& thread : joined)
        thread.join();
}

void IoCore::enterPage() {
    inside.fetch_add(1);
    begun.fetch_add(1, std::memory_order_relaxed);
    monitor.pageEntered();
}

bool IoCore::look() {
    const std::uint64_t nowInside = inside.load();
    const std::uint64_t nowBegun = begun.load(std::memory_order_relaxed);
    const std::uint64_t nowEnded = nowBegun - nowInside;
    const bool anyBegun = std::exchange(lastBegun, nowBegun) != nowBegun;
    const bool anyEnded = std::exchange(lastEnded, nowEnded) != nowEnded;
    stalled = nowInside > 0 && nowInside >= running.load() && !anyEnded && (!anyBegun || stalled);
    if (stalled)
        release();
    return anyBegun || anyEnded;
}

void IoCore::release() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (ended)
        return;
    running.fetch_add(1);
    if (parked > permits) {
        ++permits;
        released.notify_one();
        return;
    }
    try {
        threads.emplace_back([this] { run(); });
        refused = false;
    } catch (const std::exception& failure) {
        running.fetch_sub(1);
        // The monitor looks hundreds of times a second; one line tells of a lasting want.
        if (!std::exchange(refused, true))
            report(std::string("web server: no further thread: ") + failure.what());
    }
}

void IoCore::run() {
    while (!io.stopped()) {
        runOne();
        if (isSurplus() && leaveRunning())
            park();
    }
}

void IoCore::runOne() {
    // Comes back whenever there is nothing to do for a moment, since only here a thread can see
    // that it is one too many. What a handler throws ends its connection, not the server.
    try {
        io.run_one();
        io.poll();
    } catch (const std::exception& failure) {
        report(std::string("web server: connection failed: ") + failure.what());
    }
}

/// Takes this thread off the running ones, unless another one was faster.
bool IoCore::leaveRunning() {
    std::uint32_t count = running.load();
    while (count > inside.load() + 1) {
        if (running.compare_exchange_weak(count, count - 1))
            return true;
    }
    return false;
}

void IoCore::park() {
    std::unique_lock<std::mutex> lock(mutex);
    ++parked;
    released.wait(lock, [this] { return ended || permits > 0; });
    --parked;
    if (permits > 0)
        --permits;
}

} // namespace Portico

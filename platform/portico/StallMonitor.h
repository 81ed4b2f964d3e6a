#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Portico {

class IoCore;

/// Looks after cores whose threads are all inside pages and gives them one more, so that a page
/// that takes long holds up nobody else. Sleeps for good while no page runs.
class StallMonitor {
public:
    explicit StallMonitor(std::chrono::milliseconds pause) : interval(pause) {}
    ~StallMonitor();
    StallMonitor(const StallMonitor&) = delete;
    StallMonitor& operator=(const StallMonitor&) = delete;

    /// Begins to look at `cores`, which outlive the monitor's thread.
    void start(std::vector<IoCore*> cores);

    /// Ends the thread; harmless when there is none.
    void stop();

    /// To be called behind each entry into a page; cheap while the monitor is awake.
    void pageEntered() {
        if (asleep.load())
            wake();
    }

private:
    void run();
    void wake();
    bool quiet() const;

    const std::chrono::milliseconds interval;
    std::vector<IoCore*> watched;
    std::thread thread;
    std::atomic<bool> asleep{false}; ///< set by the monitor, cleared by who wakes it

    std::mutex mutex; ///< guards `ended`
    std::condition_variable changed;
    bool ended = false;
};

} // namespace Portico

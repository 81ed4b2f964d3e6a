#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Portico {

class StallMonitor;

/// One event loop with the threads that run it: one that is not inside a page, in the normal case,
/// and those that are. Connections belong to one core for their whole life.
class IoCore {
public:
    using Report = std::function<void(const std::string&)>;

    /// `failureReport` gets a line where a thread can't be started or a handler throws.
    IoCore(StallMonitor& watcher, Report failureReport);
    ~IoCore();
    IoCore(const IoCore&) = delete;
    IoCore& operator=(const IoCore&) = delete;

    boost::asio::io_context& context() { return io; }

    /// Starts the first thread. Throws std::system_error.
    void start();

    /// Ends the loop and joins the threads; what is still queued is dropped with the core.
    void stop();

    /// Stands around each call of a page, on one of the core's threads.
    class PageVisit {
    public:
        explicit PageVisit(IoCore& visited) : core(visited) { core.enterPage(); }
        ~PageVisit() { core.inside.fetch_sub(1); }
        PageVisit(const PageVisit&) = delete;
        PageVisit& operator=(const PageVisit&) = delete;

    private:
        IoCore& core;
    };

    bool hasPages() const { return inside.load() > 0; }

    /// The monitor's look: adds a thread where all are inside pages and no page has begun or ended
    /// since the last look. While a stall lasts each look adds one, though the thread before it
    /// has just begun a page. Returns true where a page has begun or ended.
    bool look();

private:
    void enterPage();
    void run();
    void runOne();
    bool isSurplus() const { return running.load() > inside.load() + 1; }
    bool leaveRunning();
    void park();
    void release();

    /// Written by this core's threads all the time: in a line of the cache that is no other core's.
    alignas(64) std::atomic<std::uint64_t> begun{0}; ///< pages so far
    std::atomic<std::uint32_t> running{0};           ///< threads that are not parked
    std::atomic<std::uint32_t> inside{0};            ///< threads inside pages

    std::uint64_t lastBegun = 0; ///< of the monitor's last look, like what follows
    std::uint64_t lastEnded = 0;
    bool stalled = false;

    StallMonitor& monitor;
    const Report report;
    boost::asio::io_context io;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work;

    std::mutex mutex; ///< guards what follows
    std::condition_variable released;
    std::uint32_t parked = 0;
    std::uint32_t permits = 0; ///< parked threads that may go
    bool ended = false;
    bool refused = false; ///< the system gave no thread when one was last asked for
    std::vector<std::thread> threads;
};

} // namespace Portico

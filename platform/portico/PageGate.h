#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

namespace Portico {

/// The places for pages: so many may run at once, what comes beyond waits in a queue, in order.
/// Nothing blocks. Used by all threads of a server.
class PageGate {
public:
    using Waiter = std::function<void()>;

    /// A place that was taken; gives it back at its end.
    class Place {
    public:
        explicit Place(PageGate& owner) : gate(owner) {}
        ~Place() { gate.leave(); }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

    private:
        PageGate& gate;
    };

    /// A `count` of 0 counts as one.
    explicit PageGate(std::uint32_t count) : places(count == 0 ? 1 : count) {}

    /// Takes a place if one is free. After false the caller goes on with wait().
    bool tryEnter();

    /// Queues `waiter`; it is called, in some thread, with a place taken for it.
    void wait(Waiter waiter);

    /// Gives a place back, or hands it to who waits longest.
    void leave();

private:
    const std::int64_t places;
    std::atomic<std::int64_t> taken{0}; ///< places in use and callers that wait or are about to

    std::mutex mutex; ///< guards what follows
    std::deque<Waiter> waiters;
    std::uint32_t handedOver = 0; ///< places meant for callers that are about to wait
};

} // namespace Portico

#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>

namespace Portico {

class Connection;

/// The connections of one core, and the one timer that holds all of them to their time limits. A
/// core without connections has no timer running.
class ConnectionList {
public:
    using Position = std::list<Connection*>::iterator;

    /// `sweepHook` is called with each look at the time limits, every `interval`
    /// milliseconds.
    ConnectionList(boost::asio::io_context& io, std::int64_t interval,
                   std::function<void()> sweepHook);

    /// Adds a connection, from any thread.
    Position add(Connection& connection);

    /// Removes one. Its socket is closed after that: until then this list may touch it.
    void remove(Position position);

    /// Closes what neither runs a page nor sends its reply.
    void closeResting();

    /// Closes connections that rest between two requests for some time, at most `count` of them.
    void evict(std::size_t count);

    /// Waits, without a limit, until the list is empty.
    void waitEmpty();

private:
    void arm();
    void sweep();

    const std::int64_t sweepMillis;
    const std::function<void()> onSweep;

    std::mutex mutex; ///< guards what follows, and each listed connection's socket against closing
    std::condition_variable emptied;
    std::list<Connection*> connections;
    boost::asio::steady_timer timer;
    bool armed = false;
};

} // namespace Portico

#include "platform/portico/ConnectionList.h"

#include "platform/portico/Connection.h"
#include "platform/portico/FrontLimits.h"

#include <chrono>
#include <utility>

namespace Portico {

ConnectionList::ConnectionList(boost::asio::io_context& io, std::int64_t interval,
                               std::function<void()> sweepHook)
    : sweepMillis(interval), onSweep(std::move(sweepHook)), timer(io) {}

ConnectionList::Position ConnectionList::add(Connection& connection) {
    const std::lock_guard<std::mutex> lock(mutex);
    connections.push_front(&connection);
    if (!armed)
        arm();
    return connections.begin();
}

void ConnectionList::remove(Position position) {
    const std::lock_guard<std::mutex> lock(mutex);
    connections.erase(position);
    if (connections.empty())
        emptied.notify_all();
}

/// With the mutex held: the timer belongs to whoever holds it.
void ConnectionList::arm() {
    armed = true;
    timer.expires_after(std::chrono::milliseconds(sweepMillis));
    timer.async_wait([this](const boost::system::error_code& failure) {
        if (!failure)
            sweep();
    });
}

void ConnectionList::sweep() {
    onSweep();
    const std::lock_guard<std::mutex> lock(mutex);
    const std::int64_t now = Connection::clockMillis();
    for (Connection* const connection : connections)
        connection->enforceLimit(now);
    armed = false;
    if (!connections.empty())
        arm();
}

void ConnectionList::closeResting() {
    const std::lock_guard<std::mutex> lock(mutex);
    for (Connection* const connection : connections)
        connection->closeIfResting();
}

void ConnectionList::evict(std::size_t count) {
    const std::lock_guard<std::mutex> lock(mutex);
    const std::int64_t now = Connection::clockMillis();
    for (auto connection = connections.rbegin(); connection != connections.rend() && count > 0;
         ++connection) {
        if ((*connection)->evict(now))
            --count;
    }
}

void ConnectionList::waitEmpty() {
    std::unique_lock<std::mutex> lock(mutex);
    emptied.wait(lock, [this] { return connections.empty(); });
}

} // namespace Portico

#pragma once

#include "platform/hub/HubClock.h"
#include "platform/hub/HubTransport.h"
#include "platform/portico/InetAddress.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace OstrandHub {

/// A document and the way that it is to go.
struct HubMessage {
    std::string document;
    bool multicast = false;     ///< by datagram to `group`, else by request to `hostAndPort`
    std::string hostAndPort;    ///< of the hub
    bool ssl = false;           ///< https for the request
    Portico::InetAddress group; ///< of the hub's multicast group; may be invalid
    std::uint16_t port = 0;     ///< of the hub's multicast group
    std::int32_t ttl = 0;       ///< of the datagram, hops
};

/// Sends messages to the hub, one after the other, from a thread of its own, and tells of each
/// failure in one line of the log, "hub ADDRESS: REASON".
///
/// The owner calls all operations from one thread. The sending thread holds its state by itself,
/// so that it may outlive the object while it hangs in a system call. No operation throws.
class HubSender {
public:
    HubSender(std::shared_ptr<HubTransport> usedTransport, std::shared_ptr<HubClock> usedClock);

    /// Ends.
    ~HubSender();

    HubSender(const HubSender&) = delete;
    HubSender& operator=(const HubSender&) = delete;

    /// Queues the message; sends it again every `renewal`, counted from the begin of the sending
    /// before, until the next message is queued. 0: once. False where the thread can't be started.
    bool send(HubMessage message, std::chrono::seconds renewal);

    /// Ends the renewal, queues the message behind what is still to be sent and waits for it to
    /// leave. What is before it gets half of `limit` and is then given up. True if the message has
    /// left within `limit`.
    bool sendLast(const HubMessage& message, std::chrono::milliseconds limit);

    /// Ends the thread and drops what is queued. A request under way is given up; a thread that
    /// does not end soon is left to do so by itself. A second call does nothing.
    void end();

private:
    struct State;

    bool ensureThread(const HubMessage& message);

    const std::shared_ptr<State> state;
    std::thread thread;
};

} // namespace OstrandHub

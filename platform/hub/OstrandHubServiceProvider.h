#pragma once

#include "platform/portico/Multicast.h"

#include <cstdint>
#include <memory>
#include <string>

namespace OstrandHub {
class HubClock;
class HubSender;
class HubTransport;
struct HubMessage;
} // namespace OstrandHub

/// The client that announces a service provider to the hub.
///
/// Messages leave from a thread of the client's own, which starts with the first one: a hub that is
/// away or hangs delays nobody. The owner calls all operations from one thread and sets the public
/// settings before it registers. No operation throws.
class OstrandHubServiceProvider : public Portico::Multicast {
public:
    /// Makes the client and fixes the service's identifier, a random UUID in lower case that is
    /// kept in the file ".serviceid" in `cacheRoot`, so that a restart has it again; where the file
    /// can't be written it lasts as long as the object. Standard error tells that, and that a file
    /// without one was replaced. `hubGroup` stands in the deregistration.
    /// With `shortId` getUUID() gives the first 8 characters.
    OstrandHubServiceProvider(const std::string& cacheRoot, const std::string& hubGroup,
                              bool shortId);

    /// The same with a transport and a clock of the caller's.
    OstrandHubServiceProvider(const std::string& cacheRoot, const std::string& hubGroup,
                              bool shortId, std::shared_ptr<OstrandHub::HubTransport> usedTransport,
                              std::shared_ptr<OstrandHub::HubClock> usedClock);

    /// Closes.
    ~OstrandHubServiceProvider();

    OstrandHubServiceProvider(const OstrandHubServiceProvider&) = delete;
    OstrandHubServiceProvider& operator=(const OstrandHubServiceProvider&) = delete;

    /// The service's identifier. Any thread may ask.
    const std::string getUUID() const;

    /// Host and port of the hub for direct registration.
    void setRegIPAddress(const std::string& hostAndPort);

    /// Gets the client ready to send. True always: a missing hub shows only when a message fails.
    bool open();

    /// Hands the registration document to the client's thread, which sends it and, if
    /// `refreshInterval` is not 0, sends it again at that interval. `ssl` asks for https on the
    /// direct way. At once true; false only where the system gives no thread.
    bool addServiceProvider(const std::string& document, bool ssl);

    /// Deregisters: ends the renewal, sends the deregistration and waits at most 2 s for it to
    /// leave. Sends nothing where nothing was registered. True if nothing was to be sent or it has
    /// left.
    bool removeServiceProvider(bool ssl);

    /// Ends the client's own activity, within half a second. What hangs in a system call is left
    /// to end by itself. True always. A second call does nothing.
    bool close();

    std::int32_t mcastTtl = 2;        ///< time-to-live of multicast messages, hops
    std::uint16_t mcastPort = 5311;   ///< port of the multicast group
    std::int32_t refreshInterval = 0; ///< seconds between two registrations; 0: once
    bool regByMulticast = false;      ///< multicast instead of a direct request; it is also the
                                      ///< way of a client that was given no address

private:
    OstrandHub::HubMessage message(const std::string& document, bool ssl) const;

    const std::string group;
    const std::string identifier;
    std::string announced; ///< identifier in the last registration: the one to deregister
    const std::shared_ptr<OstrandHub::HubTransport> transport;
    const std::shared_ptr<OstrandHub::HubClock> clock;
    std::string regAddress;
    bool registered = false; ///< a registration was handed over and none has been taken back
    std::unique_ptr<OstrandHub::HubSender>
        sender; ///< null before the first message and when closed
};

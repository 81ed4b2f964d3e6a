#pragma once

#include "platform/portico/InetAddress.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace OstrandHub {

/// How a document gets to the hub. Used by one thread at a time; no operation throws.
class HubTransport {
public:
    virtual ~HubTransport() = default;

    /// Sends `document` as POST "/serviceprovider" to the hub at `hostAndPort`, by https if `ssl`.
    /// Returns an empty text where the hub answered 2xx, else the reason. Connecting, name look-up
    /// included, takes at most 2 s and all of it 5 s; it ends early, as failed, once `abandoned`
    /// is true.
    virtual std::string post(const std::string& hostAndPort, bool ssl, const std::string& document,
                             const std::atomic<bool>& abandoned) = 0;

    /// Sends `document` as one datagram. Returns an empty text, or the reason why it did not leave.
    virtual std::string multicast(const Portico::InetAddress& group, std::uint16_t port, int ttl,
                                  const std::string& document) = 0;
};

/// The transport over the network.
std::shared_ptr<HubTransport> makeNetworkTransport();

} // namespace OstrandHub

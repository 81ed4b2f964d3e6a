#pragma once

#include "platform/portico/InetAddress.h"

#include <cstdint>
#include <string>

namespace Portico {

/// A multicast group to send datagrams to. Used by one thread at a time.
class Multicast {
public:
    Multicast() = default;

    /// Sets the group's address; false, and the group is unset, where it is no multicast address.
    bool setAddress(const InetAddress& address);

    /// The group's address; invalid while none is set.
    const InetAddress& getAddress() const { return group; }

    /// Sends `text` as one datagram to `group`:`port` with this time-to-live (0 to 255; others are
    /// cut to that range), to listeners on this machine too. Returns an empty text, or the reason
    /// why it could not be sent.
    static std::string send(const InetAddress& group, std::uint16_t port, int ttl,
                            const std::string& text);

private:
    InetAddress group;
};

} // namespace Portico

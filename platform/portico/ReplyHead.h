#pragma once

#include "platform/portico/ProtocolHTTP.h"

#include <cstdint>
#include <string>

namespace Portico {

/// Composes what stands before a reply's body on the wire. Pure, but for the clock.
class ReplyHead {
public:
    const std::string& realm;  ///< value of "Server"
    bool toHead = false;       ///< the request's method was HEAD
    bool close = false;        ///< the connection ends behind this reply
    bool sayKeepAlive = false; ///< it goes on and the client, of HTTP/1.0, has to be told

    /// What a reply of type "text/html" carries besides, or null; see ThreadedWebServer.
    const MessageHeader* htmlHeader = nullptr;

    /// Status line and header, the empty line included. What the page set goes through without
    /// carriage returns, line feeds and zero bytes; the fields that tell where the message ends
    /// are this class's own.
    std::string compose(const ProtocolHTTP::Reply& reply) const;

    /// `code`, or 500 where it is no status that can end a request.
    static std::uint32_t finalCode(std::uint32_t code) {
        return code >= 200 && code <= 999 ? code : 500;
    }

    /// True where a reply with this code, to a request that is not HEAD, has a body.
    static bool hasBody(std::uint32_t code) { return code != 204 && code != 304; }
};

} // namespace Portico

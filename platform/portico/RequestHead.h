#pragma once

#include "platform/portico/ProtocolHTTP.h"

#include <cstdint>
#include <string_view>

namespace Portico {

/// Why a request is answered by the server itself; `code` 0 means that it is not.
struct Refusal {
    unsigned code = 0;       ///< HTTP status
    const char* reason = ""; ///< for the log, a constant
};

/// The head of a request, parsed and checked, and what it says of the message around it.
class RequestHead {
public:
    /// Parses a complete head, which a HeadScanner has let through, into `request`: method, path,
    /// query and header.
    Refusal parse(std::string_view text, ProtocolHTTP::Request& request);

    bool keepAlive = false;          ///< the client wants to go on after this request
    bool version11 = false;          ///< HTTP/1.1, else 1.0
    bool chunked = false;            ///< the body comes in chunks
    bool expectsContinue = false;    ///< the client waits for a 100 before it sends the body
    std::uint64_t contentLength = 0; ///< bytes of a body that doesn't come in chunks

private:
    Refusal checkHost(unsigned hosts) const;
    Refusal readFraming(const ProtocolHTTP::Request& request);
};

} // namespace Portico

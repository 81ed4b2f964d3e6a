#pragma once

#include "platform/config/ParamBag.h"
#include "platform/portico/MessageHeader.h"

#include <cstdint>
#include <iosfwd>
#include <string>

namespace Portico::ProtocolHTTP {

/// One request as a page sees it: checked, path decoded, body complete.
class Request {
public:
    std::string method;     ///< as sent, unknown words and other case too
    std::string uri;        ///< path, percent-decoded once, dot segments resolved; begins with "/"
    Config::ParamBag query; ///< parameters behind "?", names and values as they came, not decoded

    const MessageHeader& header() const { return fields; }
    MessageHeader& header() { return fields; }

    const std::string& body() const { return content; }
    std::string& body() { return content; }

private:
    MessageHeader fields;
    std::string content;
};

/// The answer that a page fills in.
class Reply {
public:
    std::uint32_t code = 200; ///< HTTP status; stands if the page sets none

    void setCode(unsigned long value) { code = static_cast<std::uint32_t>(value); }

    MessageHeader& header() { return fields; }
    const MessageHeader& header() const { return fields; }

    std::string& body() { return content; }
    const std::string& body() const { return content; }

private:
    MessageHeader fields;
    std::string content;
};

/// Writes the request line and the header for the log in one piece: control characters escaped,
/// so that a request can't forge lines; the values of Cookie and Authorization left out; no body.
std::ostream& operator<<(std::ostream& out, const Request& request);

} // namespace Portico::ProtocolHTTP

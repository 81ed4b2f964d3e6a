#pragma once

#include <string>

namespace Portico {

/// An IPv4 address.
class InetAddress {
public:
    InetAddress() = default;

    /// From a dotted address; an invalid one where the text is none. Asks no name server.
    static InetAddress getByAddress(const std::string& dotted);

    bool isValid() const { return !text.empty(); }

    /// The dotted form; empty for an invalid address.
    const std::string& toString() const { return text; }

private:
    std::string text;
};

} // namespace Portico

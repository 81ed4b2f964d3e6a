#pragma once

#include <string>
#include <utility>

namespace Portico {

/// An address with a port, as text and number.
class SocketAddress {
public:
    SocketAddress() = default;
    SocketAddress(std::string text, unsigned short number)
        : address(std::move(text)), port(number) {}

    /// The port; 0 where nothing is bound.
    unsigned short getServicePort() const { return port; }

    /// The address in text form; empty where nothing is bound.
    const std::string& getAddress() const { return address; }

private:
    std::string address;
    unsigned short port = 0;
};

} // namespace Portico

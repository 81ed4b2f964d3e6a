#pragma once

#include <string>

namespace Portico {

/// The parts of a URL that the service needs. Never throws: what can't be read is empty.
class URL {
public:
    URL() = default;

    /// Parses `text`. A text without a scheme takes scheme, host and port from `base`.
    URL(const std::string& text, const URL& base);

    /// The same without a base.
    explicit URL(const std::string& text);

    /// The host as it stands in the URL, the brackets of an IPv6 address included, so that it can
    /// be put into another one.
    std::string getHost() const { return host; }

    /// In lower case, without "://".
    std::string getScheme() const { return scheme; }

    /// The port; where none is given the scheme's own (http 80, https 443), else 0.
    int getPort() const { return port; }

private:
    std::string scheme;
    std::string host;
    int port = 0;
};

} // namespace Portico

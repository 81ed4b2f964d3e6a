#include "platform/portico/URL.h"

#include "platform/config/Ascii.h"

#include <cstddef>
#include <string_view>

namespace Portico {

namespace {

/// The scheme of `text` in lower case; empty where it has none.
std::string schemeOf(std::string_view text) {
    const std::size_t end = text.find("://");
    if (end == std::string_view::npos || end == 0 || !Config::isLetter(text.front()))
        return "";
    std::string scheme;
    for (const char c : text.substr(0, end)) {
        if (!Config::isLetter(c) && !Config::isDigit(c) && c != '+' && c != '-' && c != '.')
            return "";
        scheme.push_back(Config::lowerCase(c));
    }
    return scheme;
}

int defaultPort(const std::string& scheme) {
    if (scheme == "http")
        return 80;
    return scheme == "https" ? 443 : 0;
}

/// The number in `digits`; 0 where it is no port.
int portOf(std::string_view digits) {
    int port = 0;
    for (const char c : digits) {
        if (!Config::isDigit(c))
            return 0;
        port = port * 10 + (c - '0');
        if (port > 65535)
            return 0;
    }
    return port;
}

} // namespace

URL::URL(const std::string& text) : URL(text, URL()) {}

URL::URL(const std::string& text, const URL& base) {
    scheme = schemeOf(text);
    if (scheme.empty()) {
        *this = base;
        return;
    }
    std::string_view authority = std::string_view(text).substr(scheme.size() + 3);
    authority = authority.substr(0, authority.find_first_of("/?#\\"));
    const std::size_t user = authority.rfind('@');
    if (user != std::string_view::npos)
        authority.remove_prefix(user + 1);

    std::size_t hostEnd = 0;
    if (!authority.empty() && authority.front() == '[') {
        hostEnd = authority.find(']');
        if (hostEnd == std::string_view::npos)
            return;
        ++hostEnd;
    } else {
        hostEnd = authority.find(':');
    }
    host = std::string(authority.substr(0, hostEnd));
    port = defaultPort(scheme);
    if (hostEnd < authority.size()) {
        const std::string_view rest = authority.substr(hostEnd);
        if (rest.front() != ':')
            port = 0;
        else if (rest.size() > 1)
            port = portOf(rest.substr(1));
    }
}

} // namespace Portico

#include "platform/portico/ProtocolHTTP.h"

#include <array>
#include <cstring>
#include <ostream>
#include <string>
#include <strings.h>

namespace Portico::ProtocolHTTP {

namespace {

/// Headers that let their reader act as the client does.
bool isSecret(const std::string& name) {
    static constexpr std::array<const char*, 3> names = {"Cookie", "Authorization",
                                                         "Proxy-Authorization"};
    for (const char* secret : names) {
        if (strcasecmp(name.c_str(), secret) == 0)
            return true;
    }
    return false;
}

void appendEscaped(std::string& out, const std::string& text) {
    static const char* const digits = "0123456789abcdef";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            out.push_back(c);
        } else {
            out.append("\\x");
            out.push_back(digits[byte >> 4]);
            out.push_back(digits[byte & 15]);
        }
    }
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Request& request) {
    std::string text;
    appendEscaped(text, request.method);
    text.push_back(' ');
    appendEscaped(text, request.uri);
    char sign = '?';
    for (const auto& [name, value] : request.query.entries()) {
        text.push_back(sign);
        appendEscaped(text, name);
        text.push_back('=');
        appendEscaped(text, value);
        sign = '&';
    }
    for (const auto& [name, value] : request.header().entries()) {
        text.push_back('\n');
        appendEscaped(text, name);
        text.append(": ");
        if (isSecret(name))
            text.append("(left out)");
        else
            appendEscaped(text, value);
    }
    return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace Portico::ProtocolHTTP

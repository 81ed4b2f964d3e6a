#include "platform/hub/UrlCoding.h"

#include "platform/config/Ascii.h"

#include <cstddef>
#include <cstring>

namespace {

bool isUnreserved(char c) {
    return Config::isLetter(c) || Config::isDigit(c) || (c != '\0' && std::strchr("-._~", c));
}

} // namespace

std::string url_encode(const std::string& text) {
    static const char hex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isUnreserved(c)) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += '%';
            encoded += hex[byte >> 4];
            encoded += hex[byte & 0xf];
        }
    }
    return encoded;
}

std::string url_decode(const std::string& text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && text.size() - i > 2) {
            const int high = Config::hexValue(text[i + 1]);
            const int low = Config::hexValue(text[i + 2]);
            if (high >= 0 && low >= 0) {
                decoded += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        decoded += text[i];
    }
    return decoded;
}

#include "platform/hub/Json.h"

#include <exception>

namespace OstrandHub {

namespace {

bool isWhiteSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

} // namespace

bool parseJson(const std::string& text, picojson::value& out) {
    try {
        picojson::value parsed;
        std::string error;
        auto rest = picojson::parse(parsed, text.begin(), text.end(), &error);
        if (!error.empty())
            return false;
        // The parser stops behind the value and leaves the rest to its caller.
        for (; rest != text.end(); ++rest) {
            if (!isWhiteSpace(*rest))
                return false;
        }
        out.swap(parsed);
        return true;
    } catch (...) {
        // A number beyond a double's range is an exception of the parser, not an error text.
        return false;
    }
}

bool parseJsonPrefix(const std::string& text, picojson::value& out, std::string& error) {
    error.clear();
    try {
        picojson::value parsed;
        picojson::parse(parsed, text.begin(), text.end(), &error);
        if (!error.empty())
            return false;
        out.swap(parsed);
        return true;
    } catch (const std::exception& thrown) {
        // A number beyond a double's range; the parser's exception says nothing of itself.
        error = *thrown.what() != '\0' ? thrown.what() : "syntax error: number out of range";
        return false;
    }
}

std::string escapeJson(const std::string& text) {
    static const char hex[] = "0123456789abcdef";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            escaped += '\\';
            escaped += c;
        } else if (byte < 0x20) {
            escaped += "\\u00";
            escaped += hex[byte >> 4];
            escaped += hex[byte & 0xf];
        } else {
            escaped += c;
        }
    }
    return escaped;
}

} // namespace OstrandHub

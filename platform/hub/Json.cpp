#include "platform/hub/Json.h"

#include <cstddef>
#include <exception>

namespace OstrandHub {

namespace {

constexpr std::size_t maxDepth = 100; ///< lists and objects that may stand in one another

/// Builds a value as the library does, but counts the depth of objects as well as that of lists:
/// the library's own counter misses them, and a text of nothing but opening braces would use up the
/// stack. Its operations hide those of the base.
class BoundedContext : public picojson::default_parse_context {
public:
    explicit BoundedContext(picojson::value* out, std::size_t depth = maxDepth)
        : default_parse_context(out, depth) {}

    template <typename Iterator>
    bool parse_array_item(picojson::input<Iterator>& in, std::size_t /*index*/) {
        picojson::array& list = out_->get<picojson::array>();
        list.emplace_back();
        return parseInner(list.back(), in);
    }

    bool parse_object_start() {
        if (!default_parse_context::parse_object_start())
            return false;
        --depths_;
        return true;
    }

    template <typename Iterator>
    bool parse_object_item(picojson::input<Iterator>& in, const std::string& key) {
        return parseInner(out_->get<picojson::object>()[key], in);
    }

private:
    template <typename Iterator>
    bool parseInner(picojson::value& out, picojson::input<Iterator>& in) {
        BoundedContext inner(&out, depths_);
        return picojson::_parse(inner, in);
    }
};

/// Where the value ends; `error` is empty unless the text is malformed.
std::string::const_iterator parseBounded(const std::string& text, picojson::value& out,
                                         std::string& error) {
    BoundedContext context(&out);
    return picojson::_parse(context, text.begin(), text.end(), &error);
}

bool isWhiteSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

} // namespace

bool parseJson(const std::string& text, picojson::value& out) {
    try {
        picojson::value parsed;
        std::string error;
        auto rest = parseBounded(text, parsed, error);
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
        parseBounded(text, parsed, error);
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

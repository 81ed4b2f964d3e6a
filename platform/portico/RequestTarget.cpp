#include "platform/portico/RequestTarget.h"

#include "platform/config/Ascii.h"

#include <cstddef>

namespace Portico {

namespace {

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

} // namespace

bool RequestTarget::parse(std::string_view target, std::string& path, Config::ParamBag& query) {
    for (const char c : target) {
        if (isControl(c))
            return false;
    }
    const std::size_t mark = target.find('?');
    const std::string_view text = target.substr(0, mark);
    if (text.empty() || text.front() != '/' || !decode(text, path) || !resolve(path))
        return false;
    if (mark != std::string_view::npos)
        parseQuery(target.substr(mark + 1), query);
    return true;
}

bool RequestTarget::decode(std::string_view text, std::string& path) {
    path.clear();
    path.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int high = i + 1 < text.size() ? Config::hexValue(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? Config::hexValue(text[i + 2]) : -1;
            if (high < 0 || low < 0)
                return false;
            c = static_cast<char>(high * 16 + low);
            if (isControl(c))
                return false;
            i += 2;
        }
        path.push_back(c);
    }
    return true;
}

bool RequestTarget::resolve(std::string& path) {
    if (path.find("/.") == std::string::npos)
        return true;
    std::string result;
    std::size_t at = 0; // of the "/" that begins a segment
    while (at < path.size()) {
        std::size_t end = path.find('/', at + 1);
        if (end == std::string::npos)
            end = path.size();
        const std::string_view segment = std::string_view(path).substr(at + 1, end - at - 1);
        const bool last = end == path.size();
        if (segment == "." || segment == "..") {
            if (segment == "..") {
                if (result.empty())
                    return false;
                result.erase(result.rfind('/'));
            }
            // A dot segment at the end names a folder.
            if (last)
                result.push_back('/');
        } else {
            result.append(path, at, end - at);
        }
        at = end;
    }
    path.swap(result);
    return true;
}

void RequestTarget::parseQuery(std::string_view text, Config::ParamBag& query) {
    while (!text.empty()) {
        const std::size_t end = text.find('&');
        const std::string_view part = text.substr(0, end);
        if (!part.empty()) {
            const std::size_t sign = part.find('=');
            const std::string_view value =
                sign == std::string_view::npos ? std::string_view() : part.substr(sign + 1);
            query.appendParam(std::string(part.substr(0, sign)), std::string(value));
        }
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

} // namespace Portico

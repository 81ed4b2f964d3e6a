#include "platform/portico/ReplyHead.h"

// The library prints its string views and does not include this itself.
#include <ostream>

#include <array>
#include <boost/beast/http/status.hpp>
#include <cstring>
#include <ctime>
#include <string_view>
#include <strings.h>

namespace Portico {

namespace {

/// Fields that a page can't set.
bool isReserved(const std::string& name) {
    static constexpr std::array<std::string_view, 5> names = {"Content-Length", "Transfer-Encoding",
                                                              "Connection", "Server", "Date"};
    for (const std::string_view reserved : names) {
        if (name.size() == reserved.size() && strcasecmp(name.c_str(), reserved.data()) == 0)
            return true;
    }
    return false;
}

/// Appends a text without what would end a line in it, and so begin a header, or a reply, of
/// somebody else's making: carriage returns, line feeds and zero bytes. Next to none has any.
void appendClean(std::string& out, const std::string& text) {
    std::size_t at = 0;
    while (true) {
        const std::size_t clean =
            std::strcspn(text.c_str() + at, "\r\n"); // ends at a zero byte too
        out.append(text, at, clean);
        at += clean + 1;
        if (at > text.size())
            return;
    }
}

/// The field "Date", made once a second by each thread.
const std::string& dateLine() {
    thread_local std::time_t madeAt = -1;
    thread_local std::string line;
    const std::time_t now = std::time(nullptr);
    if (now != madeAt) {
        static constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
        static constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        std::tm utc{};
        gmtime_r(&now, &utc);
        // The names are English whatever the locale.
        std::array<char, 64> numbers{};
        std::array<char, 64> clock{};
        (void)std::strftime(numbers.data(), numbers.size(), "%d", &utc);
        (void)std::strftime(clock.data(), clock.size(), " %Y %H:%M:%S GMT\r\n", &utc);
        line = std::string("Date: ") + days[utc.tm_wday] + ", " + numbers.data() + " " +
               months[utc.tm_mon] + clock.data();
        madeAt = now;
    }
    return line;
}

void appendField(std::string& out, const Config::ParamBag::Entry& field) {
    appendClean(out, field.first);
    out.append(": ");
    appendClean(out, field.second);
    out.append("\r\n");
}

/// True where a browser shows the reply as HTML because it is told to.
bool isHtml(const MessageHeader& header) {
    static constexpr std::string_view html = "text/html";
    const char* const type = header.getParam("Content-Type", nullptr);
    if (!type || strncasecmp(type, html.data(), html.size()) != 0)
        return false;
    const char behind = type[html.size()];
    return behind == '\0' || behind == ';' || behind == ' ' || behind == '\t';
}

void appendHtmlHeader(std::string& out, const MessageHeader& added, const MessageHeader& own) {
    for (const Config::ParamBag::Entry& field : added.entries()) {
        if (!own.hasParam(field.first.c_str()))
            appendField(out, field);
    }
}

void appendStatusLine(std::string& out, unsigned code) {
    out.append("HTTP/1.1 ").append(std::to_string(code)).push_back(' ');
    const auto status = boost::beast::http::int_to_status(code);
    if (status != boost::beast::http::status::unknown) {
        const auto reason = boost::beast::http::obsolete_reason(status);
        out.append(reason.data(), reason.size());
    }
    out.append("\r\n");
}

} // namespace

std::string ReplyHead::compose(const ProtocolHTTP::Reply& reply) const {
    const std::uint32_t code = finalCode(reply.code);
    std::string out;
    out.reserve(256);
    appendStatusLine(out, code);
    out.append("Server: ");
    appendClean(out, realm);
    out.append("\r\n").append(dateLine());
    for (const Config::ParamBag::Entry& field : reply.header().entries()) {
        if (!isReserved(field.first))
            appendField(out, field);
    }
    if (htmlHeader && isHtml(reply.header()))
        appendHtmlHeader(out, *htmlHeader, reply.header());
    // The answer to HEAD says how long the body would be, and a page that made none doesn't know.
    if (hasBody(code) && !(toHead && reply.body().empty()))
        out.append("Content-Length: ").append(std::to_string(reply.body().size())).append("\r\n");
    if (close)
        out.append("Connection: close\r\n");
    else if (sayKeepAlive)
        out.append("Connection: keep-alive\r\n");
    out.append("\r\n");
    return out;
}

} // namespace Portico

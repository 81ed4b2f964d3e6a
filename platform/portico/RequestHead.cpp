#include "platform/portico/RequestHead.h"

#include "platform/config/Ascii.h"
#include "platform/portico/FieldJoiner.h"
#include "platform/portico/RequestTarget.h"

// The library prints its string views and does not include this itself.
#include <ostream>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/basic_parser.hpp>
#include <limits>

namespace Portico {

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;

/// Hands what the library's parser finds in a head to the request. It gets the whole head in one
/// piece and never the body: what the body is, and whether there is one, is decided here.
class HeadParser final : public http::basic_parser<true> {
public:
    explicit HeadParser(ProtocolHTTP::Request& target) : fields(target.header()), request(target) {
        header_limit(std::numeric_limits<std::uint32_t>::max());
        body_limit(boost::none);
    }

    unsigned hosts = 0;
    bool version11 = false;
    bool badTarget = false;

private:
    void on_request_impl(http::verb, beast::string_view method, beast::string_view target,
                         int version, beast::error_code&) override {
        request.method.assign(method.data(), method.size());
        version11 = version == 11;
        badTarget = !RequestTarget::parse(std::string_view(target.data(), target.size()),
                                          request.uri, request.query);
    }

    void on_field_impl(http::field field, beast::string_view name, beast::string_view value,
                       beast::error_code&) override {
        if (field == http::field::host)
            ++hosts;
        fields.add(std::string(name), std::string(value));
    }

    void on_response_impl(int, beast::string_view, int, beast::error_code&) override {}
    void on_header_impl(beast::error_code&) override { fields.finish(); }
    void on_body_init_impl(const boost::optional<std::uint64_t>&, beast::error_code&) override {}
    std::size_t on_body_impl(beast::string_view body, beast::error_code&) override {
        return body.size();
    }
    void on_chunk_header_impl(std::uint64_t, beast::string_view, beast::error_code&) override {}
    std::size_t on_chunk_body_impl(std::uint64_t, beast::string_view body,
                                   beast::error_code&) override {
        return body.size();
    }
    void on_finish_impl(beast::error_code&) override {}

    FieldJoiner fields;
    ProtocolHTTP::Request& request;
};

/// True where the request line ends in a version of the protocol, be it one that nobody knows.
bool endsInVersion(std::string_view head) {
    const std::string_view line = head.substr(0, head.find('\r'));
    const std::size_t blank = line.rfind(' ');
    if (blank == std::string_view::npos || line.size() - blank != 9)
        return false;
    const std::string_view version = line.substr(blank + 1);
    return version.substr(0, 5) == "HTTP/" && Config::isDigit(version[5]) && version[6] == '.' &&
           Config::isDigit(version[7]) && version.substr(5, 3) != "1.0" &&
           version.substr(5, 3) != "1.1";
}

/// Reads digits and nothing else; false for any other text and for a number that is too large.
bool readLength(std::string_view text, std::uint64_t& length) {
    if (text.empty())
        return false;
    length = 0;
    for (const char c : text) {
        if (!Config::isDigit(c))
            return false;
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (length > (std::numeric_limits<std::uint64_t>::max() - digit) / 10)
            return false;
        length = length * 10 + digit;
    }
    return true;
}

} // namespace

Refusal RequestHead::parse(std::string_view text, ProtocolHTTP::Request& request) {
    HeadParser parser(request);
    beast::error_code failure;
    parser.put(boost::asio::buffer(text.data(), text.size()), failure);
    if (failure) {
        if (failure == http::error::bad_version && endsInVersion(text))
            return {505, "unknown version of the protocol"};
        return {400, "malformed head"};
    }
    keepAlive = parser.keep_alive();
    version11 = parser.version11;
    if (parser.badTarget)
        return {400, "bad target"};
    const Refusal refusal = checkHost(parser.hosts);
    return refusal.code != 0 ? refusal : readFraming(request);
}

Refusal RequestHead::checkHost(unsigned hosts) const {
    if (hosts == 0 && version11)
        return {400, "no host"};
    if (hosts > 1)
        return {400, "more than one host"};
    return {};
}

Refusal RequestHead::readFraming(const ProtocolHTTP::Request& request) {
    const char* const length = request.header().getParam("Content-Length", nullptr);
    const char* const coding = request.header().getParam("Transfer-Encoding", nullptr);
    if (coding) {
        if (length)
            return {400, "both a length and a transfer coding"};
        if (!beast::iequals(coding, "chunked"))
            return {501, "unknown transfer coding"};
        // Nobody in between that speaks 1.0 knows where such a message ends.
        if (!version11)
            return {400, "transfer coding in HTTP/1.0"};
        chunked = true;
    }
    // Two lengths were joined with a comma and are refused here, equal or not.
    if (length && !readLength(length, contentLength))
        return {400, "bad length"};
    const char* const expectation = request.header().getParam("Expect", "");
    expectsContinue = version11 && beast::iequals(expectation, "100-continue");
    return {};
}

} // namespace Portico

#include "platform/portico/ProtocolHTTP.h"

#include <gtest/gtest.h>
#include <sstream>

namespace Portico {
namespace {

std::string dump(const ProtocolHTTP::Request& request) {
    std::ostringstream out;
    out << request;
    return out.str();
}

TEST(ProtocolHTTP, dumpsRequestLineAndHeader) {
    ProtocolHTTP::Request request;
    request.method = "POST";
    request.uri = "/job";
    request.query.appendParam("a", "1");
    request.query.appendParam("b", "");
    request.header().joinParam("Host", "h:1");
    request.header().joinParam("Accept", "*/*");
    request.body() = "secret text";
    EXPECT_EQ(dump(request), "POST /job?a=1&b=\nHost: h:1\nAccept: */*");
}

TEST(ProtocolHTTP, leavesSecretsOut) {
    ProtocolHTTP::Request request;
    request.method = "GET";
    request.uri = "/";
    request.header().joinParam("cookie", "session=topsecret");
    request.header().joinParam("AUTHORIZATION", "Basic topsecret");
    request.header().joinParam("Proxy-Authorization", "topsecret");
    const std::string text = dump(request);
    EXPECT_EQ(text.find("topsecret"), std::string::npos);
    EXPECT_NE(text.find("cookie: "), std::string::npos);
    EXPECT_NE(text.find("AUTHORIZATION: "), std::string::npos);
}

TEST(ProtocolHTTP, escapesControlCharacters) {
    ProtocolHTTP::Request request;
    request.method = "GE\tT";
    request.uri = "/a\nb";
    request.query.appendParam("x\r", "y\x1b");
    request.header().joinParam("N\x01", std::string("v\0w\x7f", 4));
    EXPECT_EQ(dump(request), "GE\\x09T /a\\x0ab?x\\x0d=y\\x1b\nN\\x01: v\\x00w\\x7f");
}

TEST(ProtocolHTTP, repliesWith200UnlessTold) {
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(reply.code, 200u);
    reply.setCode(404);
    EXPECT_EQ(reply.code, 404u);
}

} // namespace
} // namespace Portico

#include "platform/portico/FrontLimits.h"
#include "platform/portico/WebPageStatic.h"
#include "platform/portico/support/RawClient.h"
#include "platform/portico/support/TestServer.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace Portico {
namespace {

using Support::RawClient;
using Support::RawReply;
using Support::TestServer;

const std::string closing = " HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n";

TEST(ThreadedWebServerRequest, handsTheRequestOver) {
    TestServer test;
    ProtocolHTTP::Request seen;
    test.page("/a/*", [&seen](const auto& request, auto& reply) {
        seen = request;
        reply.setCode(203);
        reply.header().setParam("X-Mine", "yes");
        reply.body() = "done";
        return true;
    });
    RawClient client(test.start());
    client.send("pOST /a/%62?c=%64&e HTTP/1.1\r\nHost: h\r\nX-A: 1\r\nx-a: 2\r\n"
                "Content-Length: 3\r\n\r\nx\nz");
    const RawReply reply = client.reply();
    EXPECT_EQ(reply.code, 203);
    EXPECT_EQ(reply.body, "done");
    EXPECT_EQ(reply.header("Server"), "Test");
    EXPECT_EQ(reply.header("X-Mine"), "yes");
    EXPECT_EQ(reply.header("Content-Type"), "(absent)");
    EXPECT_EQ(reply.header("Connection"), "(absent)");
    EXPECT_EQ(seen.method, "pOST");
    EXPECT_EQ(seen.uri, "/a/b");
    EXPECT_STREQ(seen.query.getParam("c", "-"), "%64");
    EXPECT_STREQ(seen.query.getParam("e", "-"), "");
    EXPECT_STREQ(seen.header().getParam("X-A", "-"), "1, 2");
    EXPECT_EQ(seen.body(), "x\nz");
}

TEST(ThreadedWebServerRequest, answersOverBothProtocolVersions) {
    TestServer test;
    const unsigned short port = test.start();
    EXPECT_EQ(RawClient(port, false).get("/hello").body, "hello");
    EXPECT_EQ(RawClient(port, true).get("/hello").body, "hello");
}

TEST(ThreadedWebServerRequest, answersUnknownPathsWith404AndGoesOn) {
    TestServer test;
    RawClient client(test.start());
    const RawReply reply = client.get("/nothing");
    EXPECT_EQ(reply.code, 404);
    EXPECT_EQ(reply.header("Content-Length"), "0");
    EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST(ThreadedWebServerRequest, sendsAReplyAsAPageThatReturnsFalseLeftIt) {
    TestServer test;
    test.page("/no", [](const auto&, auto& reply) {
        reply.setCode(400);
        reply.body() = "left";
        return false;
    });
    test.page("/untouched", [](const auto&, auto&) { return false; });
    RawClient client(test.start());
    const RawReply reply = client.get("/no");
    EXPECT_EQ(reply.code, 400);
    EXPECT_EQ(reply.body, "left");
    const RawReply untouched = client.get("/untouched");
    EXPECT_EQ(untouched.code, 200);
    EXPECT_EQ(untouched.header("Content-Length"), "0");
}

TEST(ThreadedWebServerRequest, frames500InPlaceOfACodeThatIsNone) {
    TestServer test;
    test.page("/odd", [](const auto&, auto& reply) {
        reply.setCode(100);
        reply.body() = "odd";
        return true;
    });
    test.page("/empty", [](const auto&, auto& reply) {
        reply.setCode(204);
        reply.body() = "not sent";
        return true;
    });
    RawClient client(test.start());
    const RawReply odd = client.get("/odd");
    EXPECT_EQ(odd.code, 500);
    EXPECT_EQ(odd.body, "odd");
    EXPECT_EQ(client.get("/empty").code, 204);
    EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST(ThreadedWebServerRequest, sendsNoBodyToHead) {
    TestServer test;
    test.page("/empty", [](const auto&, auto&) { return true; });
    RawClient client(test.start());
    client.send("HEAD /hello HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_EQ(client.reply(true).header("Content-Length"), "5");
    client.send("HEAD /empty HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_EQ(client.reply(true).header("Content-Length"), "(absent)");
    client.send("HEAD /nothing HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_EQ(client.reply(true).code, 404);
    client.send("head /hello" + closing);
    EXPECT_EQ(client.reply().body, "hello");
    EXPECT_TRUE(client.isClosed());
}

TEST(ThreadedWebServerRequest, answersEveryMethodWithAStaticPage) {
    TestServer test;
    test.server.addPage("/icon", WebPageStatic("a\0b", 3, "image/x-icon", 200));
    RawClient client(test.start());
    for (const char* method : {"GET", "POST", "PUT", "OPTIONS", "BREW"}) {
        client.send(std::string(method) + " /icon HTTP/1.1\r\nHost: h\r\n\r\n");
        const RawReply reply = client.reply();
        EXPECT_EQ(reply.code, 200) << method;
        EXPECT_EQ(reply.body, std::string("a\0b", 3));
        EXPECT_EQ(reply.header("Content-Type"), "image/x-icon");
    }
}

TEST(ThreadedWebServerRequest, answersAnExceptionWithAnEmpty500) {
    TestServer test;
    test.page("/standard", [](const auto&, auto& reply) -> bool {
        reply.body() = "half";
        reply.header().setParam("X-Half", "yes");
        throw std::runtime_error("broken");
    });
    test.page("/other", [](const auto&, auto&) -> bool { throw 1; });
    RawClient client(test.start());
    for (const char* path : {"/standard", "/other"}) {
        const RawReply reply = client.get(path);
        EXPECT_EQ(reply.code, 500) << path;
        EXPECT_EQ(reply.header("Content-Length"), "0");
        EXPECT_EQ(reply.header("X-Half"), "(absent)");
    }
    EXPECT_EQ(client.get("/hello").body, "hello");
}

/// Requests that no page sees, and what they are answered with.
class RefusedRequest : public testing::TestWithParam<std::pair<int, const char*>> {};

TEST_P(RefusedRequest, isAnsweredAndEndsTheConnection) {
    TestServer test;
    int calls = 0;
    test.page("/*", [&calls](const auto&, auto&) { return ++calls > 0; });
    test.server.bodyLimit = 1000;
    RawClient client(test.start());
    client.send(GetParam().second);
    // What follows is not taken for a request.
    client.send("GET /hello HTTP/1.1\r\nHost: h\r\n\r\n");
    const RawReply reply = client.reply();
    EXPECT_EQ(reply.code, GetParam().first);
    EXPECT_EQ(reply.header("Connection"), "close");
    EXPECT_EQ(reply.header("Content-Length"), "0");
    EXPECT_EQ(reply.header("Server"), "Test");
    client.endSending();
    EXPECT_TRUE(client.isClosed());
    test.server.stop();
    EXPECT_EQ(calls, 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, RefusedRequest,
    testing::Values(
        std::pair(400, "GET / HTTP/1.1\r\n\r\n"), std::pair(400, "nonsense\r\n\r\n"),
        std::pair(400, "GET / HTTP/1.1\r\nHost: h\r\nX: a\r\n b\r\n\r\n"),
        std::pair(400, "GET / HTTP/1.1\r\nHost: h\r\nX : a\r\n\r\n"),
        std::pair(400, "GET / HTTP/1.1\r\nHost: h\r\nOrigin: a\rb\r\n\r\n"),
        std::pair(400, "GET /../x HTTP/1.1\r\nHost: h\r\n\r\n"),
        std::pair(400, "GET /%2e%2e/x HTTP/1.1\r\nHost: h\r\n\r\n"),
        std::pair(400, "GET /%00 HTTP/1.1\r\nHost: h\r\n\r\n"),
        std::pair(400, "GET /%4 HTTP/1.1\r\nHost: h\r\n\r\n"),
        std::pair(400, "GET http://h/ HTTP/1.1\r\nHost: h\r\n\r\n"),
        std::pair(400, "OPTIONS * HTTP/1.1\r\nHost: h\r\n\r\n"),
        std::pair(400, "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\n"
                       "Transfer-Encoding: chunked\r\n\r\n"),
        std::pair(400, "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: -1\r\n\r\n"),
        std::pair(400, "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n0x1\r\n"),
        std::pair(413, "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1001\r\n\r\n"),
        std::pair(413, "POST / HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\n"
                       "Content-Length: 1001\r\n\r\n"),
        std::pair(413, "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n3e9\r\n"),
        std::pair(501, "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: gzip\r\n\r\n"),
        std::pair(505, "GET / HTTP/2.0\r\nHost: h\r\n\r\n")));

TEST(ThreadedWebServerRequest, refusesAHeadThatIsTooLarge) {
    TestServer test;
    RawClient client(test.start());
    const std::string start = "GET /hello HTTP/1.1\r\nHost: h\r\nX: ";
    client.send(start + std::string(FrontLimits::headSize - start.size() - 4, 'x') + "\r\n\r\n");
    EXPECT_EQ(client.reply().code, 200);
    client.send(start + std::string(FrontLimits::headSize, 'x') + "\r\n\r\n");
    EXPECT_EQ(client.reply().code, 431);
    client.endSending();
    EXPECT_TRUE(client.isClosed());
}

TEST(ThreadedWebServerRequest, getsARefusalThroughToAClientThatStillSends) {
    TestServer test;
    test.server.bodyLimit = 1000;
    RawClient client(test.start());
    client.send("POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 4000000\r\n\r\n" +
                std::string(4000000, 'x'));
    EXPECT_EQ(client.reply().code, 413);
}

TEST(ThreadedWebServerRequest, answersPipelinedRequestsInOrder) {
    TestServer test;
    RawClient client(test.start());
    std::string requests;
    for (int i = 0; i < 200; ++i) {
        const std::string body = std::to_string(i);
        requests += "POST /echo HTTP/1.1\r\nHost: h\r\n";
        if (i % 2 == 0)
            requests += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        else
            requests += "Transfer-Encoding: chunked\r\n\r\n" + std::to_string(body.size()) +
                        "\r\n" + body + "\r\n0\r\n\r\n";
    }
    client.send("\r\n" + requests);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(client.reply().body, std::to_string(i));
    EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST(ThreadedWebServerRequest, takesThePipelinedNextOnlyWhenAReplyHasLeft) {
    TestServer test;
    std::atomic<int> calls{0};
    test.page("/large", [&calls](const auto&, auto& reply) {
        ++calls;
        reply.body().assign(8000000, 'x');
        return true;
    });
    RawClient client;
    client.takeLittle();
    ASSERT_TRUE(client.connect(test.start()));
    std::string requests;
    for (int i = 0; i < 50; ++i)
        requests += "GET /large HTTP/1.1\r\nHost: h\r\n\r\n";
    client.send(requests);
    // Others are served over and over meanwhile; more than the buffers of the system take is not
    // prepared for a client that reads nothing.
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(RawClient(test.port()).get("/hello").code, 200);
    EXPECT_LE(calls.load(), 3);
}

TEST(ThreadedWebServerRequest, sendsLargeRepliesToSlowReadersWhole) {
    TestServer test;
    std::string large;
    for (int i = 0; large.size() < 16000000; ++i)
        large += std::to_string(i);
    test.page("/large", [&large](const auto&, auto& reply) {
        reply.body() = large;
        return true;
    });
    RawClient client;
    client.takeLittle();
    ASSERT_TRUE(client.connect(test.start()));
    EXPECT_TRUE(client.get("/large").body == large);
    EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST(ThreadedWebServerRequest, takesLargeBodies) {
    TestServer test;
    std::string large;
    for (int i = 0; large.size() < 5000000; ++i)
        large += std::to_string(i);
    RawClient client(test.start());
    client.send("POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                std::to_string(large.size()) + "\r\n\r\n" + large);
    EXPECT_TRUE(client.reply().body == large);
    std::string chunks;
    for (std::size_t at = 0; at < large.size(); at += 65536) {
        const std::size_t size = std::min<std::size_t>(65536, large.size() - at);
        char line[32];
        (void)std::snprintf(line, sizeof line, "%zx\r\n", size);
        chunks += line + large.substr(at, size) + "\r\n";
    }
    client.send("POST /echo HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks +
                "0\r\n\r\n");
    EXPECT_TRUE(client.reply().body == large);
}

TEST(ThreadedWebServerRequest, takesARequestByteByByte) {
    TestServer test;
    RawClient client(test.start());
    const std::string text =
        "\r\nPOST /echo HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "3;x=y\r\nabc\r\n0\r\nT: u\r\n\r\n";
    for (const char c : text)
        ASSERT_TRUE(client.send(std::string(1, c)));
    EXPECT_EQ(client.reply().body, "abc");
}

TEST(ThreadedWebServerRequest, saysContinueOnceBeforeTheBody) {
    TestServer test;
    RawClient client(test.start());
    client.send(
        "POST /echo HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n");
    const RawReply interim = client.reply();
    EXPECT_EQ(interim.head, "HTTP/1.1 100 Continue\r\n");
    client.send("ab");
    client.send("cd");
    EXPECT_EQ(client.reply().body, "abcd");
    // A body that is there already needs no invitation.
    client.send(
        "POST /echo HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\nxy");
    EXPECT_EQ(client.reply().body, "xy");
}

TEST(ThreadedWebServerRequest, closesAfterHttp10UnlessAsked) {
    TestServer test;
    const unsigned short port = test.start();
    RawClient client(port);
    client.send("GET /hello HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
    const RawReply kept = client.reply();
    EXPECT_EQ(kept.body, "hello");
    EXPECT_EQ(kept.header("Connection"), "keep-alive");
    client.send("GET /hello HTTP/1.0\r\n\r\n");
    const RawReply last = client.reply();
    EXPECT_EQ(last.body, "hello");
    EXPECT_EQ(last.header("Connection"), "close");
    EXPECT_TRUE(client.isClosed());
}

TEST(ThreadedWebServerRequest, closesWhenAsked) {
    TestServer test;
    RawClient client(test.start());
    client.send("GET /hello" + closing);
    const RawReply reply = client.reply();
    EXPECT_EQ(reply.body, "hello");
    EXPECT_EQ(reply.header("Connection"), "close");
    EXPECT_TRUE(client.isClosed());
}

TEST(ThreadedWebServerRequest, getsTheLastReplyThroughThoughMoreWasSent) {
    TestServer test;
    RawClient client(test.start());
    client.send("GET /hello" + closing + std::string(3000000, 'x'));
    EXPECT_EQ(client.reply().body, "hello");
}

TEST(ThreadedWebServerRequest, survivesClientsThatLeave) {
    TestServer test;
    test.page("/large", [](const auto&, auto& reply) {
        reply.body().assign(8000000, 'x');
        return true;
    });
    const unsigned short port = test.start();
    for (const char* text :
         {"", "GET", "GET /hello HTTP/1.1\r\nHost: h\r\n\r\n",
          "GET /large HTTP/1.1\r\nHost: h\r\n\r\n",
          "POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 10\r\n\r\nabc",
          "POST /echo HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 10\r\n\r\n"}) {
        for (int i = 0; i < 10; ++i)
            RawClient(port).send(text);
    }
    EXPECT_EQ(RawClient(port).get("/hello").body, "hello");
}

TEST(ThreadedWebServerRequest, answersAClientThatHasEndedSending) {
    TestServer test;
    RawClient client(test.start());
    client.send("GET /hello HTTP/1.1\r\nHost: h\r\n\r\n");
    client.endSending();
    EXPECT_EQ(client.reply().body, "hello");
    EXPECT_TRUE(client.isClosed());
}

} // namespace
} // namespace Portico

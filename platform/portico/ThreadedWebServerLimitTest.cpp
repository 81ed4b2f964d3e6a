#include "platform/hub/MessageLog.h"
#include "platform/portico/support/RawClient.h"
#include "platform/portico/support/TestServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Portico {
namespace {

using Support::RawClient;
using Support::RawReply;
using Support::TestServer;

/// A server that loses patience soon.
struct HastyServer : TestServer {
    HastyServer() {
        server.threadParams.idleSeconds = 1;
        server.threadParams.clientSeconds = 1;
    }
};

TEST(ThreadedWebServerLimit, closesIdleConnections) {
    HastyServer test;
    const unsigned short port = test.start();
    RawClient silent(port);
    RawClient rested(port);
    EXPECT_EQ(rested.get("/hello").code, 200);
    EXPECT_TRUE(silent.isClosed());
    EXPECT_TRUE(rested.isClosed());
}

TEST(ThreadedWebServerLimit, givesEmptyLinesNoTime) {
    HastyServer test;
    RawClient client(test.start());
    client.send("\r\n\r\n\r");
    EXPECT_TRUE(client.isClosed());
}

TEST(ThreadedWebServerLimit, answersAHeadOrBodyThatStandsStillWith408) {
    HastyServer test;
    const unsigned short port = test.start();
    for (const char* text :
         {"G", "GET /hello HTTP/1.1\r\nHost:",
          "POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\n",
          "POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nabc",
          "POST /echo HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nab"}) {
        RawClient client(port);
        client.send(text);
        const RawReply reply = client.reply();
        EXPECT_EQ(reply.code, 408) << text;
        EXPECT_EQ(reply.header("Connection"), "close");
        EXPECT_TRUE(client.isClosed());
    }
}

TEST(ThreadedWebServerLimit, answersAClientThatWaitsInVainForItsOwnBodyWith408) {
    HastyServer test;
    RawClient client(test.start());
    client.send(
        "POST /echo HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 5\r\n\r\n");
    EXPECT_EQ(client.reply().code, 100);
    EXPECT_EQ(client.reply().code, 408);
}

TEST(ThreadedWebServerLimit, leavesSlowClientsThatGetOnAlone) {
    TestServer test;
    test.server.threadParams.clientSeconds = 3;
    RawClient client(test.start());
    client.send("POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 10\r\n\r\n");
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        ASSERT_TRUE(client.send("x"));
    }
    EXPECT_EQ(client.reply().body, "xxxxxxxxxx");
}

TEST(ThreadedWebServerLimit, endsAReplyThatNobodyReads) {
    HastyServer test;
    constexpr std::size_t size = 60000000;
    test.page("/large", [](const auto&, auto& reply) {
        reply.body().assign(size, 'x');
        return true;
    });
    RawClient client;
    client.takeLittle();
    ASSERT_TRUE(client.connect(test.start()));
    client.send("GET /large HTTP/1.1\r\nHost: h\r\n\r\n");
    // The server gives up in its own time: a second client can tell when.
    test.turnstile.open();
    RawClient watch(test.port());
    EXPECT_TRUE(watch.isClosed());
    RawClient second(test.port());
    EXPECT_TRUE(second.isClosed());
    RawClient third(test.port());
    EXPECT_TRUE(third.isClosed());
    EXPECT_LT(client.rest().size(), size);
}

TEST(ThreadedWebServerLimit, givesPagesAllTheTimeTheyNeed) {
    HastyServer test;
    const unsigned short port = test.start();
    RawClient client(port);
    client.send("GET /block HTTP/1.1\r\nHost: h\r\n\r\n");
    test.turnstile.waitForEntered(1);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(RawClient(port).isClosed());
    test.turnstile.open();
    EXPECT_EQ(client.reply().body, "blocked");
}

/// Keeps the log of a test apart.
struct LoggedServer : TestServer {
    LoggedServer() { OstrandService::MessageLog::setLogPath(folder.path()); }
    ~LoggedServer() {
        server.stop();
        OstrandService::MessageLog::setLogPath("");
    }

    /// How often `text` stands in the log.
    int count(const std::string& text) const {
        const std::string log = folder.read("messages.log");
        int found = 0;
        for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++found;
        return found;
    }

    ::Support::TemporaryFolder folder;
};

TEST(ThreadedWebServerLimit, logsRefusedAndFailedRequests) {
    LoggedServer test;
    test.page("/broken",
              [](const auto&, auto&) -> bool { throw std::runtime_error("a {} %s\nb"); });
    const unsigned short port = test.start();
    RawClient client(port);
    EXPECT_EQ(client.get("/broken").code, 500);
    EXPECT_EQ(test.count("\n"), 1);
    EXPECT_EQ(test.count("/broken: page failed: a {} %s\\nb"), 1);
    client.send("GET / HTTP/3.0\r\n\r\n");
    EXPECT_EQ(client.reply().code, 505);
    EXPECT_EQ(test.count("refused with 505"), 1);
}

TEST(ThreadedWebServerLimit, limitsItsLinesInTheLog) {
    LoggedServer test;
    test.server.setLogSize(2);
    const unsigned short port = test.start();
    for (int i = 0; i < 5; ++i) {
        RawClient client(port);
        client.send("x\r\n\r\n");
        EXPECT_EQ(client.reply().code, 400);
    }
    EXPECT_EQ(test.count("\n"), 2);
    test.server.stop();
    EXPECT_EQ(test.count("\n"), 3);
    EXPECT_EQ(test.count("3 more lines left out"), 1);
}

TEST(ThreadedWebServerLimit, tracesWhenAsked) {
    LoggedServer test;
    test.server.traceRequests = true;
    test.server.traceReplies = true;
    RawClient client(test.start());
    client.send("GET /hello HTTP/1.1\r\nHost: h\r\nCookie: topsecret\r\n\r\n");
    EXPECT_EQ(client.reply().code, 200);
    EXPECT_EQ(test.count("GET /hello\\nHost: h\\nCookie: "), 1);
    EXPECT_EQ(test.count("replied 200 to GET /hello"), 1);
    EXPECT_EQ(test.count("topsecret"), 0);
}

/// Takes the process to its limit of open files while it lives.
class FullFileTable {
public:
    FullFileTable() {
        getrlimit(RLIMIT_NOFILE, &before);
        // The lowest free number is the first one over the limit.
        const int next = dup(0);
        close(next);
        rlimit full = before;
        full.rlim_cur = static_cast<rlim_t>(next);
        setrlimit(RLIMIT_NOFILE, &full);
    }
    ~FullFileTable() { setrlimit(RLIMIT_NOFILE, &before); }
    FullFileTable(const FullFileTable&) = delete;
    FullFileTable& operator=(const FullFileTable&) = delete;

private:
    rlimit before{};
};

TEST(ThreadedWebServerLimit, letsNewClientsWaitAtTheFileLimit) {
    LoggedServer test;
    const unsigned short port = test.start();
    RawClient busy(port);
    busy.send("GET /block HTTP/1.1\r\nHost: h\r\n\r\n");
    test.turnstile.waitForEntered(1);
    // Opens the log's file too.
    RawClient wrong(port);
    wrong.send("x\r\n\r\n");
    EXPECT_EQ(wrong.reply().code, 400);
    wrong.endSending();
    EXPECT_TRUE(wrong.isClosed());
    RawClient active(port);
    EXPECT_EQ(active.get("/hello").code, 200);
    RawClient waiting;
    {
        const FullFileTable full;
        ASSERT_TRUE(waiting.connect(port));
        waiting.send("GET /hello HTTP/1.1\r\nHost: h\r\n\r\n");
        EXPECT_TRUE(
            ::Support::waitUntil([&test] { return test.count("no more connections") > 0; }));
        test.turnstile.open();
        EXPECT_EQ(busy.reply().body, "blocked");
    }
    EXPECT_EQ(waiting.reply().body, "hello");
}

TEST(ThreadedWebServerLimit, closesRestingConnectionsForNewOnesAtTheFileLimit) {
    TestServer test;
    const unsigned short port = test.start();
    RawClient resting(port);
    EXPECT_EQ(resting.get("/hello").code, 200);
    RawClient waiting;
    const FullFileTable full;
    ASSERT_TRUE(waiting.connect(port));
    EXPECT_EQ(waiting.get("/hello").body, "hello");
    EXPECT_TRUE(resting.isClosed());
}

} // namespace
} // namespace Portico

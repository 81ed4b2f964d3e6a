#include "platform/portico/support/RawClient.h"
#include "platform/portico/support/TestServer.h"
#include "tests/support/WaitUntil.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace Portico {
namespace {

using Support::RawClient;
using Support::RawReply;
using Support::TestServer;

bool canConnect(unsigned short port) {
    RawClient client;
    return client.connect(port);
}

TEST(ThreadedWebServerStop, isHarmlessWithoutStartAndTwice) {
    ThreadedWebServer unused;
    unused.stop();
    TestServer test;
    test.server.stop();
    const unsigned short port = test.start();
    test.server.stop();
    test.server.stop();
    EXPECT_FALSE(canConnect(port));
}

TEST(ThreadedWebServerStop, canBeFollowedByAnotherStart) {
    TestServer test;
    EXPECT_EQ(RawClient(test.start()).get("/hello").body, "hello");
    test.server.stop();
    EXPECT_EQ(RawClient(test.start()).get("/hello").body, "hello");
}

TEST(ThreadedWebServerStop, happensInTheDestructor) {
    unsigned short port = 0;
    {
        TestServer test;
        port = test.start();
        EXPECT_TRUE(canConnect(port));
    }
    EXPECT_FALSE(canConnect(port));
}

TEST(ThreadedWebServerStop, closesConnectionsThatRunNoPage) {
    TestServer test;
    const unsigned short port = test.start();
    RawClient silent(port);
    RawClient rested(port);
    RawClient head(port);
    RawClient body(port);
    EXPECT_EQ(rested.get("/hello").code, 200);
    head.send("GET /hel");
    body.send("POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\na");
    EXPECT_EQ(RawClient(port).get("/hello").code, 200);
    test.server.stop();
    EXPECT_EQ(silent.rest(), "");
    EXPECT_EQ(rested.rest(), "");
    EXPECT_EQ(head.rest(), "");
    EXPECT_EQ(body.rest(), "");
}

TEST(ThreadedWebServerStop, letsRunningPagesAnswer) {
    TestServer test;
    const unsigned short port = test.start();
    RawClient running(port);
    running.send("GET /block HTTP/1.1\r\nHost: h\r\n\r\n");
    test.turnstile.waitForEntered(1);
    std::thread stopper([&test] { test.server.stop(); });
    EXPECT_TRUE(::Support::waitUntil([port] { return !canConnect(port); }));
    // The port is free for a successor while the page still runs.
    TestServer successor;
    successor.server.start("", port, "", "");
    EXPECT_EQ(RawClient(port).get("/hello").body, "hello");
    test.turnstile.open();
    stopper.join();
    const RawReply reply = running.reply();
    EXPECT_EQ(reply.body, "blocked");
    EXPECT_EQ(reply.header("Connection"), "close");
    EXPECT_TRUE(running.isClosed());
}

TEST(ThreadedWebServerStop, answersRequestsThatFoundNoPlaceWith503) {
    TestServer test;
    test.server.threadParams.numThreads = 1;
    const unsigned short port = test.start();
    RawClient running(port);
    running.send("GET /block HTTP/1.1\r\nHost: h\r\n\r\n");
    test.turnstile.waitForEntered(1);
    RawClient waiting(port);
    waiting.send("GET /hello HTTP/1.1\r\nHost: h\r\n\r\n");
    // Refused behind it on its loop, whichever of them that is: the waiting one has been read.
    for (unsigned i = 0; i < 2 * std::thread::hardware_concurrency(); ++i) {
        RawClient wrong(port);
        wrong.send("x\r\n\r\n");
        EXPECT_EQ(wrong.reply().code, 400);
    }
    std::thread stopper([&test] { test.server.stop(); });
    EXPECT_TRUE(::Support::waitUntil([port] { return !canConnect(port); }));
    test.turnstile.open();
    stopper.join();
    EXPECT_EQ(running.reply().body, "blocked");
    EXPECT_EQ(waiting.reply().code, 503);
    EXPECT_TRUE(waiting.isClosed());
}

TEST(ThreadedWebServerStop, doesNotWaitForAClientThatReadsNothing) {
    TestServer test;
    test.server.threadParams.clientSeconds = 1;
    test.page("/large", [](const auto&, auto& reply) {
        reply.body().assign(60000000, 'x');
        return true;
    });
    RawClient client;
    client.takeLittle();
    ASSERT_TRUE(client.connect(test.start()));
    client.send("GET /large HTTP/1.1\r\nHost: h\r\n\r\n");
    client.reply(true);
    test.server.stop();
    EXPECT_LT(client.rest().size(), 60000000u);
}

TEST(ThreadedWebServerStop, losesAndTearsNoReplyUnderLoad) {
    for (int round = 0; round < 20; ++round) {
        TestServer test;
        std::atomic<int> ran{0};
        for (const std::size_t size : {5U, 300000U}) {
            test.page(size == 5 ? "/small" : "/large", [&ran, size](const auto&, auto& reply) {
                ++ran;
                reply.body().assign(size, 'x');
                return true;
            });
        }
        const unsigned short port = test.start();
        std::atomic<int> served{0};
        std::atomic<int> torn{0};
        std::vector<std::thread> clients;
        clients.reserve(6);
        for (int i = 0; i < 6; ++i) {
            clients.emplace_back([&, i] {
                const std::string path = i % 2 == 0 ? "/small" : "/large";
                RawClient client;
                if (!client.connect(port))
                    return;
                for (;;) {
                    const RawReply reply = client.get(path);
                    if (reply.code == 200)
                        ++served;
                    else if (!reply.head.empty())
                        ++torn;
                    if (reply.code == 0)
                        return;
                }
            });
        }
        EXPECT_TRUE(::Support::waitUntil([&served] { return served.load() >= 100; }));
        test.server.stop();
        for (std::thread& client : clients)
            client.join();
        EXPECT_EQ(torn.load(), 0);
        // What a page did, the client was told.
        EXPECT_EQ(ran.load(), served.load());
    }
}

} // namespace
} // namespace Portico

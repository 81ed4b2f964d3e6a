#include "platform/portico/support/RawClient.h"
#include "platform/portico/support/TestServer.h"

#include <boost/filesystem.hpp>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace Portico {
namespace {

using Support::RawClient;
using Support::TestServer;

const std::string blockRequest = "GET /block HTTP/1.1\r\nHost: h\r\n\r\n";

std::vector<RawClient> blockedClients(unsigned short port, int count) {
    std::vector<RawClient> clients;
    clients.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        clients.emplace_back(port);
        EXPECT_TRUE(clients.back().send(blockRequest));
    }
    return clients;
}

long countThreads() {
    return std::distance(boost::filesystem::directory_iterator("/proc/self/task"),
                         boost::filesystem::directory_iterator());
}

TEST(ThreadedWebServerStall, servesOthersWhileManyPagesAreBlocked) {
    TestServer test;
    const unsigned short port = test.start();
    std::vector<RawClient> clients = blockedClients(port, 250);
    test.turnstile.waitForEntered(250);
    RawClient kept(port);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(kept.get("/hello").body, "hello");
        EXPECT_EQ(RawClient(port).get("/hello").body, "hello");
    }
    test.turnstile.open();
    for (RawClient& client : clients)
        EXPECT_EQ(client.reply().body, "blocked");
    for (RawClient& client : clients)
        EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST(ThreadedWebServerStall, usesItsThreadsAgain) {
    TestServer test;
    const unsigned short port = test.start();
    long after[2] = {};
    for (long& threads : after) {
        test.turnstile.close();
        std::vector<RawClient> clients = blockedClients(port, 40);
        test.turnstile.waitForEntered(40);
        test.turnstile.open();
        for (RawClient& client : clients)
            EXPECT_EQ(client.reply().body, "blocked");
        threads = countThreads();
    }
    // A loop may have had one more page of the second crowd than of the first.
    EXPECT_LE(after[1], after[0] + 3);
}

TEST(ThreadedWebServerStall, holdsTheNumberOfPagesAtOnce) {
    TestServer test;
    test.server.threadParams.numThreads = 3;
    const unsigned short port = test.start();
    std::vector<RawClient> clients = blockedClients(port, 12);
    test.turnstile.waitForEntered(3);
    // The places are taken; what needs none goes on.
    RawClient wrong(port);
    wrong.send("nonsense\r\n\r\n");
    EXPECT_EQ(wrong.reply().code, 400);
    EXPECT_EQ(test.turnstile.countEntered(), 3);
    test.turnstile.open();
    for (RawClient& client : clients)
        EXPECT_EQ(client.reply().body, "blocked");
    EXPECT_LE(test.turnstile.countMost(), 3);
}

TEST(ThreadedWebServerStall, servesWithOnePlaceInOrder) {
    for (const std::uint32_t places : {0u, 1u}) {
        TestServer test;
        test.server.threadParams.numThreads = places;
        test.server.threadParams.clientSeconds = 1;
        std::vector<std::string> order;
        test.page("/order/*", [&order](const auto& request, auto&) {
            order.push_back(request.uri);
            return true;
        });
        const unsigned short port = test.start();
        std::vector<RawClient> blocked = blockedClients(port, 1);
        test.turnstile.waitForEntered(1);
        RawClient first(port);
        RawClient second(port);
        first.send("GET /order/1 HTTP/1.1\r\nHost: h\r\n\r\n");
        // A head that stands still is seen to though the one place is taken, and for longer than
        // a request that waits for it may be held against its client.
        RawClient slow(port);
        slow.send("GET /");
        EXPECT_EQ(slow.reply().code, 408);
        second.send("GET /order/2 HTTP/1.1\r\nHost: h\r\n\r\n");
        RawClient slower(port);
        slower.send("GET /");
        EXPECT_EQ(slower.reply().code, 408);
        EXPECT_TRUE(order.empty());
        test.turnstile.open();
        EXPECT_EQ(blocked.front().reply().body, "blocked");
        EXPECT_EQ(first.reply().code, 200);
        EXPECT_EQ(second.reply().code, 200);
        EXPECT_EQ(order, (std::vector<std::string>{"/order/1", "/order/2"}));
    }
}

TEST(ThreadedWebServerStall, readsFromManySlowClientsWithoutAThreadForEach) {
    TestServer test;
    test.server.threadParams.numThreads = 2;
    const unsigned short port = test.start();
    const long before = countThreads();
    std::vector<RawClient> clients;
    clients.reserve(400);
    for (int i = 0; i < 400; ++i) {
        clients.emplace_back(port);
        clients.back().send(i % 2 == 0
                                ? "POST /ec"
                                : "POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\n\r\na");
    }
    EXPECT_EQ(RawClient(port).get("/hello").body, "hello");
    EXPECT_LE(countThreads(), before + 4);
    for (std::size_t i = 0; i < clients.size(); ++i) {
        clients[i].send(i % 2 == 0 ? "ho HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\n\r\nab" : "b");
        EXPECT_EQ(clients[i].reply().body, "ab");
    }
}

} // namespace
} // namespace Portico

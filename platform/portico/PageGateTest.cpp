#include "platform/portico/PageGate.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace Portico {
namespace {

TEST(PageGate, queuesWhatFindsNoPlace) {
    PageGate gate(2);
    std::vector<int> served;
    EXPECT_TRUE(gate.tryEnter());
    EXPECT_TRUE(gate.tryEnter());
    for (const int guest : {1, 2}) {
        EXPECT_FALSE(gate.tryEnter());
        gate.wait([&served, guest] { served.push_back(guest); });
    }
    EXPECT_TRUE(served.empty());
    gate.leave();
    EXPECT_EQ(served, (std::vector<int>{1}));
    gate.leave();
    EXPECT_EQ(served, (std::vector<int>{1, 2}));
    gate.leave();
    gate.leave();
    EXPECT_TRUE(gate.tryEnter());
}

TEST(PageGate, hasOnePlaceAtLeast) {
    PageGate gate(0);
    EXPECT_TRUE(gate.tryEnter());
    EXPECT_FALSE(gate.tryEnter());
}

TEST(PageGate, keepsAPlaceForWhoIsAboutToWait) {
    PageGate gate(1);
    ASSERT_TRUE(gate.tryEnter());
    ASSERT_FALSE(gate.tryEnter());
    gate.leave();
    bool served = false;
    gate.wait([&served] { served = true; });
    EXPECT_TRUE(served);
}

TEST(PageGate, losesNobodyAmongManyThreads) {
    constexpr int threadCount = 4;
    constexpr int rounds = 5000;
    PageGate gate(2);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> served{0};
    const auto serve = [&] {
        const int now = inside.fetch_add(1) + 1;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        served.fetch_add(1);
        inside.fetch_sub(1);
    };
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                if (gate.tryEnter()) {
                    serve();
                    gate.leave();
                } else {
                    // As in the server, a handed-over place is used behind the call, not in it.
                    std::atomic<bool> mine{false};
                    gate.wait([&mine] { mine.store(true); });
                    while (!mine.load())
                        std::this_thread::yield();
                    serve();
                    gate.leave();
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(served.load(), threadCount * rounds);
    EXPECT_LE(most.load(), 2);
}

} // namespace
} // namespace Portico

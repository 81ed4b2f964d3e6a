#include "platform/kestrel/Mutex.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace Kestrel {

TEST(MutexTest, OneThreadAtATimeIsInside) {
    Mutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                const MutexGuard guard(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, 4000);
}

TEST(MutexTest, GuardGivesTheMutexBackAtTheEndOfTheScope) {
    Mutex mutex;
    { const MutexGuard guard(mutex); }
    bool entered = false;
    std::thread([&] {
        const MutexGuard guard(mutex);
        entered = true;
    }).join();
    EXPECT_TRUE(entered);
}

TEST(MutexTest, UnlockGivesTheMutexBackOnceAndEarly) {
    Mutex mutex;
    MutexGuard guard(mutex);
    guard.unlock();
    bool entered = false;
    std::thread([&] {
        MutexGuard other(mutex);
        entered = true;
        // Neither this nor the end of the guard outside may give back what is another's.
        guard.unlock();
    }).join();
    EXPECT_TRUE(entered);
}

} // namespace Kestrel

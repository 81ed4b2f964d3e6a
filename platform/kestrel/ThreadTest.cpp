#include "platform/kestrel/Thread.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>

namespace Kestrel {

namespace {

class Worker : public Thread {
public:
    std::atomic<int> runs{0};
    std::thread::id runner; ///< written by run(), read after join()

private:
    int run() override {
        runner = std::this_thread::get_id();
        return 40 + ++runs;
    }
};

std::atomic<int> interruptions{0};

} // namespace

TEST(ThreadTest, RunsOnAThreadOfItsOwnAndReturnsTheResult) {
    Worker worker;
    worker.start();
    EXPECT_EQ(worker.join(), 41);
    EXPECT_EQ(worker.runs, 1);
    EXPECT_NE(worker.runner, std::this_thread::get_id());
}

TEST(ThreadTest, JoinWithoutStartIsZero) {
    Worker worker;
    EXPECT_EQ(worker.join(), 0);
    EXPECT_EQ(worker.runs, 0);
}

TEST(ThreadTest, SecondJoinGivesTheResultAgain) {
    Worker worker;
    worker.start();
    worker.join();
    EXPECT_EQ(worker.join(), 41);
}

TEST(ThreadTest, SecondStartBeforeTheJoinDoesNothing) {
    Worker worker;
    worker.start();
    worker.start();
    EXPECT_EQ(worker.join(), 41);
    EXPECT_EQ(worker.runs, 1);
}

TEST(ThreadTest, CanBeStartedAgainAfterTheJoin) {
    Worker worker;
    worker.start();
    worker.join();
    worker.start();
    EXPECT_EQ(worker.join(), 42);
}

TEST(ThreadTest, SleepLastsAsLongAsAsked) {
    const auto begin = std::chrono::steady_clock::now();
    Thread::sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
    Thread::sleep(0);
}

TEST(ThreadTest, SignalsDoNotCutTheSleepShort) {
    struct sigaction action = {};
    action.sa_handler = [](int) { ++interruptions; };
    struct sigaction former = {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &former), 0);
    interruptions = 0;
    std::atomic<bool> awake{false};
    std::chrono::steady_clock::duration slept{};
    std::thread sleeper([&] {
        const auto begin = std::chrono::steady_clock::now();
        Thread::sleep(100);
        slept = std::chrono::steady_clock::now() - begin;
        awake = true;
    });
    int sent = 0;
    while (!awake) {
        ::pthread_kill(sleeper.native_handle(), SIGUSR1);
        ++sent;
        Thread::sleep(1);
    }
    sleeper.join();
    ::sigaction(SIGUSR1, &former, nullptr);
    // Signals that meet one another on the way may arrive as one.
    EXPECT_GT(sent, 1);
    EXPECT_GE(interruptions, 1);
    EXPECT_GE(slept, std::chrono::milliseconds(100));
}

} // namespace Kestrel

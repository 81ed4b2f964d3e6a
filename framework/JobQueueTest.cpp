#include "framework/JobQueue.h"

#include "tests/support/TestJob.h"
#include "tests/support/WaitUntil.h"

#include <atomic>
#include <boost/thread/lock_guard.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace OstrandService {
namespace {

using Support::TestJob;

TEST(JobQueueTest, HandsOutInOrderOfArrival) {
    JobQueue queue;
    EXPECT_TRUE(queue.empty());
    const auto first = TestJob::make();
    const auto second = TestJob::make();
    queue.push(first);
    queue.push(second);
    EXPECT_FALSE(queue.empty());
    EXPECT_EQ(queue.pop(), first);
    EXPECT_EQ(queue.pop(), second);
    EXPECT_TRUE(queue.empty());
}

TEST(JobQueueTest, PutsAJobAheadOfThoseThatWait) {
    JobQueue queue;
    const auto waiting = TestJob::make();
    const auto urgent = TestJob::make();
    {
        const boost::lock_guard<boost::mutex> lock(queue.mutex);
        queue.pushBack(waiting);
        queue.pushFront(urgent);
    }
    EXPECT_EQ(queue.pop(), urgent);
    EXPECT_EQ(queue.pop(), waiting);
}

TEST(JobQueueTest, HandsOutNothingOnceClosedThoughJobsWait) {
    JobQueue queue;
    queue.push(TestJob::make());
    queue.close();
    EXPECT_FALSE(queue.pop());
    EXPECT_FALSE(queue.pop());
    EXPECT_FALSE(queue.empty());
}

TEST(JobQueueTest, StoresWhatIsPushedWhenClosed) {
    JobQueue queue;
    queue.close();
    queue.push(TestJob::make());
    EXPECT_FALSE(queue.empty());
    EXPECT_FALSE(queue.pop());
}

TEST(JobQueueTest, HoldsAReferenceToEachJob) {
    auto job = TestJob::make();
    const boost::weak_ptr<TestJob> observer = job;
    {
        JobQueue queue;
        queue.push(job);
        job.reset();
        EXPECT_FALSE(observer.expired());
    }
    EXPECT_TRUE(observer.expired());
}

TEST(JobQueueTest, PushWakesAWaitingWorker) {
    JobQueue queue;
    std::atomic<bool> got{false};
    std::thread worker([&] { got = static_cast<bool>(queue.pop()); });
    queue.push(TestJob::make());
    worker.join();
    EXPECT_TRUE(got);
}

TEST(JobQueueTest, CloseWakesAllWaitingWorkers) {
    JobQueue queue;
    std::atomic<int> nulls{0};
    std::atomic<int> begun{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; ++i) {
        workers.emplace_back([&] {
            ++begun;
            if (!queue.pop())
                ++nulls;
        });
    }
    EXPECT_TRUE(Support::waitUntil([&] { return begun == 4; }));
    queue.close();
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(nulls, 4);
}

TEST(JobQueueTest, LosesAndDoublesNothingAmongManyThreads) {
    constexpr int producers = 4;
    constexpr int jobsEach = 250;
    JobQueue queue;
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (const JobQueue::Job job = queue.pop()) {
                ++job->id;
                ++taken;
            }
        });
    }
    std::vector<boost::shared_ptr<TestJob>> jobs(producers * jobsEach);
    for (auto& job : jobs)
        job = TestJob::make();
    for (int i = 0; i < producers; ++i) {
        threads.emplace_back([&queue, &jobs, i] {
            for (int k = 0; k < jobsEach; ++k)
                queue.push(jobs[static_cast<std::size_t>(i * jobsEach + k)]);
        });
    }
    EXPECT_TRUE(Support::waitUntil([&] { return taken == producers * jobsEach; }));
    queue.close();
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& job : jobs)
        ASSERT_EQ(job->id, 1u);
}

} // namespace
} // namespace OstrandService

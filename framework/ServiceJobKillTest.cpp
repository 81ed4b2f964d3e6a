#include "framework/ServiceJobBase.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestJob.h"
#include "tests/support/WaitUntil.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace OstrandService {
namespace {

using Support::TestJob;
using Support::waitUntil;
using States = std::vector<JobState>;

std::ptrdiff_t countOf(const TestJob& job, JobState state) {
    const States states = job.states();
    return std::count(states.begin(), states.end(), state);
}

class ServiceJobKillTest : public ::testing::Test {
protected:
    boost::shared_ptr<TestJob> makeJob(std::vector<std::string> lines) const {
        const auto job = TestJob::make(std::move(lines));
        job->prepare(folder.path());
        return job;
    }

    /// Stops the tool of `job` once; true when that hit a running tool.
    static bool killOnce(const boost::shared_ptr<TestJob>& job) {
        const std::ptrdiff_t before = countOf(*job, JobState::TERMINATING);
        return waitUntil([&] {
            job->kill();
            return countOf(*job, JobState::TERMINATING) > before;
        });
    }

    Support::TemporaryFolder folder;
};

TEST_F(ServiceJobKillTest, DoesNothingWhileNoToolRuns) {
    const auto job = makeJob({"true"});
    job->kill();
    EXPECT_EQ(job->states(), States());
    EXPECT_EQ(job->state, JobState::INVALID);
    job->run();
    job->kill();
    EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS, JobState::CLOSED}));
}

TEST_F(ServiceJobKillTest, StoppedToolCountsAsOneThatEndedWell) {
    const auto job = makeJob({"sleep 600"});
    std::thread worker([&] { job->run(); });
    EXPECT_TRUE(killOnce(job));
    worker.join();
    EXPECT_EQ(job->states(),
              (States{JobState::IN_PROCESS, JobState::TERMINATING, JobState::CLOSED}));
}

TEST_F(ServiceJobKillTest, EndsTheWholeGroupOfTheTool) {
    const auto job = makeJob({"sh -c 'sleep 600 & echo $!; wait'"});
    std::thread worker([&] { job->run(); });
    EXPECT_TRUE(
        waitUntil([&] { return folder.read("console.txt").find('\n') != std::string::npos; }));
    const auto child = static_cast<pid_t>(std::stol(folder.read("console.txt")));
    EXPECT_TRUE(killOnce(job));
    worker.join();
    EXPECT_EQ(job->state, JobState::CLOSED);
    // Gone, or a zombie of whoever adopts orphans here.
    EXPECT_TRUE(waitUntil([&] {
        const std::string stat = "/proc/" + std::to_string(child) + "/stat";
        std::ifstream in(stat);
        std::string line;
        return !std::getline(in, line) || line.find(") Z ") != std::string::npos;
    }));
}

TEST_F(ServiceJobKillTest, NextCommandStillRuns) {
    const auto job = makeJob({"sh -c 'echo one; exec sleep 600'", "echo two"});
    std::thread worker([&] { job->run(); });
    EXPECT_TRUE(waitUntil([&] { return folder.read("console.txt") == "one\n"; }));
    EXPECT_TRUE(killOnce(job));
    worker.join();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_EQ(folder.read("console.txt"), "one\ntwo\n");
}

// A stop that comes when the tool has ended and its last state is set, but is not cleared yet, is
// the one that lasts: the worker loop looks for it.
TEST_F(ServiceJobKillTest, BetweenFinalStateAndClearingLeavesTerminating) {
    for (const char* line : {"true", "false"}) {
        const auto job = makeJob({line});
        job->onState = [&job](JobState state) {
            if (state == JobState::CLOSED || state == JobState::ERROR)
                job->kill();
        };
        job->run();
        EXPECT_EQ(job->state, JobState::TERMINATING) << line;
        job->kill();
        EXPECT_EQ(countOf(*job, JobState::TERMINATING), 1) << line;
        job->onState = nullptr;
    }
}

// The same from another thread, as the web threads do.
TEST_F(ServiceJobKillTest, BetweenFinalStateAndClearingFromAnotherThread) {
    const auto job = makeJob({"true"});
    job->onState = [&job](JobState state) {
        if (state == JobState::CLOSED)
            std::thread([&job] { job->kill(); }).join();
    };
    job->run();
    job->onState = nullptr;
    EXPECT_EQ(job->state, JobState::TERMINATING);
}

TEST_F(ServiceJobKillTest, ManyThreadsAtOnceEndEveryTool) {
    const auto job = makeJob(std::vector<std::string>(25, "sleep 600"));
    std::atomic<bool> done{false};
    std::vector<std::thread> killers;
    for (int i = 0; i < 4; ++i) {
        killers.emplace_back([&] {
            while (!done)
                job->kill();
        });
    }
    job->run();
    done = true;
    for (std::thread& killer : killers)
        killer.join();
    EXPECT_EQ(countOf(*job, JobState::ERROR), 0);
    EXPECT_EQ(countOf(*job, JobState::CLOSED), 25);
    EXPECT_GE(countOf(*job, JobState::TERMINATING), 25);
}

// A job that was queued twice may be run by two workers at a time.
TEST_F(ServiceJobKillTest, TwoRunsAtOnceBothEnd) {
    const auto job = makeJob(std::vector<std::string>(20, "echo x"));
    std::thread other([&] { job->run(); });
    job->run();
    other.join();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_EQ(countOf(*job, JobState::CLOSED), 40);
    EXPECT_EQ(folder.read("console.txt").size(), 80u);
    job->kill();
    EXPECT_EQ(countOf(*job, JobState::TERMINATING), 0);
}

} // namespace
} // namespace OstrandService

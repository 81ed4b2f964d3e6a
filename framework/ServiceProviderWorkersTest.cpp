#include "framework/ServiceProvider.h"

#include "platform/hub/OstrandHubServiceProvider.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestJob.h"
#include "tests/support/TestProvider.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <thread>

namespace OstrandService {
namespace {

using Support::OutputCapture;
using Support::TestJob;
using Support::TestProvider;
using Support::waitUntil;
using Events = std::vector<std::string>;
using States = std::vector<JobState>;

class ThrowingJob : public TestJob {
public:
    void getCommands(Commands&) override { throw std::runtime_error("out of everything"); }
};

class ServiceProviderWorkersTest : public ::testing::Test {
protected:
    ~ServiceProviderWorkersTest() override {
        if (provider)
            stop();
    }

    void start(std::size_t workers) {
        provider->hubProvider.reset(new OstrandHubServiceProvider(folder.path(), "G", false));
        provider->workerThreads.resize(workers, nullptr);
        provider->start();
    }

    std::string stop() {
        OutputCapture capture;
        provider->shutdown();
        return capture.errors();
    }

    /// Puts a job in the queue as a provider does, with the next id.
    template <typename Type>
    boost::shared_ptr<Type> add(boost::shared_ptr<Type> job, JobState state = JobState::OPEN) {
        job->prepare(folder.path());
        job->id = ++lastId;
        job->state = state;
        ++provider->numJobs;
        provider->jobQueue.push(job);
        return job;
    }

    bool waitForEvents(std::size_t count) const {
        return waitUntil([&] { return provider->events().size() >= count; });
    }

    /// A command that runs until the test makes the file "go"; for a minute at most.
    static std::string untilGo() {
        return "timeout 60 sh -c ': >started; until test -e go; do sleep 0.02; done'";
    }

    Support::TemporaryFolder folder;
    std::unique_ptr<TestProvider> provider = std::make_unique<TestProvider>();
    std::uint32_t lastId = 0;
};

TEST_F(ServiceProviderWorkersTest, OneWorkerRunsInOrderOfArrival) {
    const auto tell = [this](const char* name) {
        return [this, name](JobState state) {
            provider->record(std::string(name) + " " + jobStateName(state));
        };
    };
    const auto first = TestJob::make({"true"});
    const auto second = TestJob::make({"false"});
    first->onState = tell("first");
    second->onState = tell("second");
    add(first);
    add(second);
    start(1);
    EXPECT_TRUE(waitForEvents(6));
    EXPECT_EQ(provider->events(),
              (Events{"first IN PROCESS", "first CLOSED", "finished 1 CLOSED", "second IN PROCESS",
                      "second ERROR", "finished 2 ERROR"}));
    EXPECT_EQ(provider->numJobs, 0u);
    EXPECT_EQ(provider->numJobsFinished, 1u);
    EXPECT_EQ(provider->numJobsFailed, 1u);
}

TEST_F(ServiceProviderWorkersTest, WorkersRunJobsAtTheSameTime) {
    start(2);
    add(TestJob::make({untilGo()}));
    EXPECT_TRUE(waitUntil([&] { return folder.has("started"); }));
    const auto other = add(TestJob::make({"sh -c ': >go'"}));
    EXPECT_TRUE(waitForEvents(2));
    EXPECT_EQ(provider->numJobsFinished, 2u);
}

TEST_F(ServiceProviderWorkersTest, CleansUpAStoppedJobAheadOfThoseThatWait) {
    const auto stopped = TestJob::make({"true"});
    const std::thread::id own = std::this_thread::get_id();
    stopped->onState = [&](JobState state) {
        if (state == JobState::CLOSED)
            stopped->kill();
    };
    stopped->onCleanup = [&] {
        provider->record(std::this_thread::get_id() == own ? "cleanup here" : "cleanup");
    };
    add(stopped);
    add(TestJob::make({"true"}));
    start(1);
    EXPECT_TRUE(waitForEvents(4));
    EXPECT_EQ(provider->events(), (Events{"finished 1 TERMINATING", "cleanup",
                                          "removed 1 MARKED FOR DELETION", "finished 2 CLOSED"}));
    EXPECT_EQ(stopped->states(), (States{JobState::IN_PROCESS, JobState::CLOSED,
                                         JobState::TERMINATING, JobState::MARKED_FOR_DELETION}));
    EXPECT_EQ(provider->numJobs, 0u);
    EXPECT_EQ(provider->numJobsFinished, 2u);
    stop();
    stopped->onState = nullptr;
}

TEST_F(ServiceProviderWorkersTest, NeverRunsAJobThatIsMarkedForDeletion) {
    const auto marked = add(TestJob::make({"sh -c ': >ran'"}), JobState::MARKED_FOR_DELETION);
    marked->onCleanup = [&] { provider->record("cleanup"); };
    start(2);
    EXPECT_TRUE(waitForEvents(2));
    EXPECT_EQ(provider->events(), (Events{"cleanup", "removed 1 MARKED FOR DELETION"}));
    EXPECT_EQ(marked->states(), States());
    EXPECT_FALSE(folder.has("ran"));
    EXPECT_EQ(provider->numJobs, 1u);
}

TEST_F(ServiceProviderWorkersTest, ShutdownWaitsForTheToolAndStartsNoOther) {
    start(1);
    add(TestJob::make({untilGo(), "sh -c ': >second'"}));
    auto waiting = add(TestJob::make({"sh -c ': >third'"}));
    EXPECT_TRUE(waitUntil([&] { return folder.has("started"); }));
    std::thread stopper([&] { EXPECT_EQ(stop(), "shutting down threads\n"); });
    EXPECT_TRUE(waitUntil([&] {
        const boost::lock_guard<boost::mutex> lock(provider->jobQueue.mutex);
        return provider->jobQueue.closed;
    }));
    EXPECT_FALSE(provider->running);
    folder.write("go", "");
    stopper.join();

    // The job that ran was finished whole; the other was left as it was and goes with the provider.
    EXPECT_EQ(provider->events(), (Events{"finished 1 CLOSED"}));
    EXPECT_TRUE(folder.has("second"));
    EXPECT_FALSE(folder.has("third"));
    EXPECT_EQ(waiting->states(), States());
    EXPECT_EQ(provider->numJobs, 1u);
    const boost::weak_ptr<TestJob> observer = waiting;
    waiting.reset();
    EXPECT_FALSE(observer.expired());
    provider.reset();
    EXPECT_TRUE(observer.expired());
}

TEST_F(ServiceProviderWorkersTest, JobsWaitForEverWithoutWorkers) {
    start(0);
    const auto job = add(TestJob::make({"true"}));
    stop();
    EXPECT_EQ(job->states(), States());
    EXPECT_FALSE(provider->jobQueue.empty());
}

TEST_F(ServiceProviderWorkersTest, SurvivesAJobThatThrows) {
    const auto bad = add(boost::make_shared<ThrowingJob>());
    start(1);
    const auto good = add(TestJob::make({"true"}));
    EXPECT_TRUE(waitForEvents(2));
    EXPECT_EQ(provider->events(), (Events{"finished 1 ERROR", "finished 2 CLOSED"}));
}

TEST_F(ServiceProviderWorkersTest, DropsItsReferenceWithTheJob) {
    auto job = add(TestJob::make({"true"}));
    const boost::weak_ptr<TestJob> observer = job;
    job.reset();
    start(1);
    EXPECT_TRUE(waitUntil([&] { return observer.expired(); }));
    EXPECT_EQ(provider->events(), (Events{"finished 1 CLOSED"}));
}

TEST_F(ServiceProviderWorkersTest, CountsByTheStateAfterTheRun) {
    for (std::uint32_t number = 0; number < 11; ++number) {
        TestProvider counting;
        ServiceProvider::Job job = TestJob::make();
        job->state = static_cast<JobState>(number);
        counting.ServiceProvider::jobFinished(job);
        const bool failed = number == 6 || number == 7;
        EXPECT_EQ(counting.numJobsFailed, failed ? 1u : 0u) << number;
        EXPECT_EQ(counting.numJobsFinished, failed ? 0u : 1u) << number;
        EXPECT_EQ(counting.numJobs, 4294967295u) << number;
    }
    ServiceProvider::Job none;
    provider->ServiceProvider::jobFinished(none);
    EXPECT_EQ(provider->numJobs, 0u);
    EXPECT_EQ(provider->numJobsFinished, 0u);
}

} // namespace
} // namespace OstrandService

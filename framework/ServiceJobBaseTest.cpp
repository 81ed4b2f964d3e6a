#include "framework/ServiceJobBase.h"

#include "platform/hub/TranscoderJobDesc.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestJob.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Support::OutputCapture;
using Support::TestJob;
using States = std::vector<JobState>;

constexpr const char* spawnError =
    "Error spawning process. Called tool most likely not executable or found\n";

class ServiceJobBaseTest : public ::testing::Test {
protected:
    /// A job with these command lines, whose folder is the test's own.
    boost::shared_ptr<TestJob> makeJob(std::vector<std::string> lines = {}) const {
        return placed(TestJob::make(std::move(lines)));
    }

    boost::shared_ptr<TestJob> placed(boost::shared_ptr<TestJob> job) const {
        job->prepare(folder.path());
        return job;
    }

    std::string console() const { return folder.read("console.txt"); }

    Support::TemporaryFolder folder;
};

TEST_F(ServiceJobBaseTest, IsInvalidWhenNew) {
    const auto job = TestJob::make();
    EXPECT_EQ(job->stateName(), "INVALID");
    EXPECT_EQ(job->workDir(), ".");
    EXPECT_EQ(job->id, 0u);
    EXPECT_STREQ(job->resultText, "");
}

TEST_F(ServiceJobBaseTest, StaysInProcessWithoutCommands) {
    const auto job = makeJob();
    job->run();
    EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS}));
    EXPECT_EQ(job->stateName(), "IN PROCESS");
    EXPECT_STREQ(job->resultText, "See Resource");
    EXPECT_FALSE(folder.has("console.txt"));
}

TEST_F(ServiceJobBaseTest, ClosesAfterACommandThatEndsWell) {
    const auto job = makeJob({"sh -c 'echo out; echo err >&2'"});
    job->run();
    EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS, JobState::CLOSED}));
    EXPECT_EQ(console(), "out\nerr\n");
}

TEST_F(ServiceJobBaseTest, FailsByTheExitCode) {
    const auto job = makeJob({"sh -c 'echo text; exit 3'"});
    job->run();
    EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS, JobState::ERROR}));
    EXPECT_EQ(console(), "text\n");
}

TEST_F(ServiceJobBaseTest, FailsWhereAToolDiesByASignalOfItsOwn) {
    for (const char* signal : {"KILL", "SEGV", "TERM"}) {
        const auto job = makeJob({std::string("sh -c 'kill -") + signal + " $$'"});
        job->run();
        EXPECT_EQ(job->state, JobState::ERROR) << signal;
    }
}

TEST_F(ServiceJobBaseTest, LastCommandDecidesAndNoneIsLeftOut) {
    const auto job = makeJob({"sh -c 'echo one; exit 1'", "sh -c 'echo two'"});
    job->run();
    EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS, JobState::ERROR, JobState::CLOSED}));
    EXPECT_EQ(console(), "one\ntwo\n");

    const auto other = makeJob({"sh -c 'echo three'", "sh -c 'echo four; exit 1'"});
    other->run();
    EXPECT_EQ(other->states(), (States{JobState::IN_PROCESS, JobState::CLOSED, JobState::ERROR}));
    EXPECT_EQ(console(), "one\ntwo\nthree\nfour\n");
}

TEST_F(ServiceJobBaseTest, FailsSilentlyForACommandWithoutAString) {
    const auto job = placed(TestJob::withCommands({{}}));
    OutputCapture capture;
    job->run();
    EXPECT_EQ(capture.output(), "");
    EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS, JobState::ERROR}));
    EXPECT_FALSE(folder.has("console.txt"));

    const auto followed = placed(TestJob::withCommands({{}, {"true"}}));
    followed->run();
    EXPECT_EQ(followed->state, JobState::CLOSED);
}

TEST_F(ServiceJobBaseTest, UsesTheFirstStringOfACommandOnly) {
    const auto job = placed(TestJob::withCommands({{"echo a", "b", "/nonexistent"}}));
    job->run();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_EQ(console(), "a\n");
}

TEST_F(ServiceJobBaseTest, ReportsAToolThatCannotBeStarted) {
    folder.write("text", "no program");
    for (const char* line : {"/nonexistent/tool x", "no-such-tool-anywhere", "", "  \t", "'open",
                             "true \\", "./text", "''"}) {
        boost::filesystem::remove(folder.path("console.txt"));
        const auto job = makeJob({line});
        OutputCapture capture;
        job->run();
        EXPECT_EQ(capture.output(), spawnError) << line;
        EXPECT_EQ(job->states(), (States{JobState::IN_PROCESS, JobState::ERROR})) << line;
        EXPECT_EQ(console(), spawnError) << line;
    }
}

TEST_F(ServiceJobBaseTest, AppendsTheStartFailureToTheConsole) {
    const auto job = makeJob({"echo before", "/nonexistent/tool", "echo after"});
    OutputCapture capture;
    job->run();
    EXPECT_EQ(capture.output(), spawnError);
    EXPECT_EQ(console(), std::string("before\n") + spawnError + "after\n");
    EXPECT_EQ(job->state, JobState::CLOSED);
}

TEST_F(ServiceJobBaseTest, ReportsAMissingFolderOnStandardOutputAlone) {
    const auto job = TestJob::make({"true"});
    job->setWorkDir(folder.path("missing"));
    OutputCapture capture;
    job->run();
    EXPECT_EQ(capture.output(), spawnError);
    EXPECT_EQ(job->state, JobState::ERROR);
    EXPECT_FALSE(folder.has("missing"));
}

TEST_F(ServiceJobBaseTest, RunsTheToolThoughItsConsoleCannotBeOpened) {
    folder.makeFolder("console.txt");
    const auto job = makeJob({"sh -c 'echo lost; : >ran'"});
    job->run();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_TRUE(folder.has("ran"));
}

TEST_F(ServiceJobBaseTest, GivesTheToolItsFolderAndAnEmptyInput) {
    const auto job = makeJob({"pwd", "cat"});
    job->run();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_EQ(console(), boost::filesystem::canonical(folder.path()).string() + "\n");
}

TEST_F(ServiceJobBaseTest, GivesEachToolItsShareOfTheVariables) {
    TranscoderJobDesc::cookieAwareCmds = {"env"};
    const auto job = makeJob({"sh -c 'echo $OWN_VARIABLE-$PORTICO_HTTPURL_COOKIE_HEADER-$HOME'",
                              "env sh -c 'echo $PORTICO_HTTPURL_COOKIE_HEADER'"});
    job->environment = {{"OWN_VARIABLE", "own"}, {"HOME", "here"}, {cookieVariable, "sid=2"}};
    job->run();
    TranscoderJobDesc::cookieAwareCmds.clear();
    EXPECT_EQ(console(), "own--here\nsid=2\n");
}

TEST_F(ServiceJobBaseTest, WritesItsStatusToTheByte) {
    const auto job = makeJob();
    job->state = JobState::CLOSED;
    job->writeStatus();
    EXPECT_EQ(folder.read(".status"), "{ \"status\" : 3 }\n");
    job->state = JobState::OPEN;
    job->writeStatus();
    EXPECT_EQ(folder.read(".status"), "{ \"status\" : 0 }\n");
}

TEST_F(ServiceJobBaseTest, KeepsQuietWhereTheStatusCannotBeWritten) {
    const auto job = TestJob::make();
    job->setWorkDir(folder.path("missing"));
    OutputCapture capture;
    job->writeStatus();
    EXPECT_EQ(capture.output() + capture.errors(), "");
    EXPECT_FALSE(folder.has("missing"));
}

TEST_F(ServiceJobBaseTest, TakesAGoodStatusWithoutSettingIt) {
    const auto job = makeJob();
    folder.write(".status", "{\"status\":7.5}");
    job->readStatus();
    EXPECT_EQ(job->state, JobState::TERMINATED);
    EXPECT_EQ(job->states(), States());
    EXPECT_EQ(folder.read(".status"), "{\"status\":7.5}");
}

TEST_F(ServiceJobBaseTest, SetsErrorWhereTheStatusMakesNoSense) {
    for (const char* text : {"", "{ \"status\" : 12 }", "{ \"status\" : \"3\" }", "text",
                             "{ \"status\" : 1e999 }", "{ \"status\" : 3 } x"}) {
        const auto job = makeJob();
        folder.write(".status", text);
        job->readStatus();
        EXPECT_EQ(job->states(), (States{JobState::ERROR})) << text;
    }
    const auto missing = TestJob::make();
    missing->setWorkDir(folder.path("missing"));
    missing->readStatus();
    EXPECT_EQ(missing->states(), (States{JobState::ERROR}));
}

} // namespace
} // namespace OstrandService

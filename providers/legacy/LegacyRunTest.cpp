#include "providers/legacy/FettleRun.h"
#include "providers/legacy/JobProcThread.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"
#include "providers/legacy/MimeExtensions.h"
#include "providers/legacy/ProcessRun.h"
#include "providers/legacy/ScreenshotScene.h"

#include "platform/hub/TranscoderJobDesc.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace OstrandService {
namespace {

namespace fs = boost::filesystem;

/// A store in a folder of its own, and a stand-in for the viewer on the PATH.
class LegacyRunTest : public ::testing::Test {
protected:
    LegacyRunTest() {
        LegacyState::current = &state;
        state.cachePath = folder.path();
        state.screenshotTemplate = screenshotScene;
        TranscoderJobDesc::cmd_whitelist.insert("*");
    }
    ~LegacyRunTest() override {
        TranscoderJobDesc::cmd_whitelist.erase("*");
        LegacyState::current = nullptr;
    }

    std::string tool(const std::string& name, const std::string& script) {
        const std::string path = folder.write("tools/" + name, "#!/bin/sh\n" + script);
        fs::permissions(path, fs::owner_all);
        return path;
    }

    std::uint32_t submit(const std::string& json) {
        JobRecord record("");
        EXPECT_TRUE(record.parseJobText(json));
        return state.store->submitJob(record, json);
    }

    bool runTool(std::uint32_t id) {
        return runFettleJob(state.store->getJobRecord(id), id, jobFolder(id));
    }
    bool runBatch(std::uint32_t id) {
        return runCommandBatch(state.store->getJobRecord(id), id, jobFolder(id));
    }

    std::string jobFolder(std::uint32_t id) const {
        return folder.path() + "/" + std::to_string(id) + "/";
    }

    const Support::TemporaryFolder folder;
    LegacyState state;
};

TEST_F(LegacyRunTest, OutcomeOfAProcess) {
    const std::string path = folder.path();
    EXPECT_EQ(runProcess("sh -c \"echo out; echo err >&2\"", path, "c.txt"), 2);
    EXPECT_EQ(runProcess("sh -c 'exit 1'", path, "c.txt"), 3);
    EXPECT_EQ(runProcess("sh -c 'kill -9 $$'", path, "c.txt"), 3);
    EXPECT_EQ(runProcess("no-such-tool", path, "none.txt"), 3);
    EXPECT_EQ(folder.read("none.txt"), "") << "made before the tool is started";
    EXPECT_EQ(folder.read("c.txt"), "out\nerr\n");
    folder.makeFolder("folder");
    EXPECT_EQ(runProcess("true", path, "folder"), 2) << "a console that can't be opened";
}

TEST_F(LegacyRunTest, ProcessWithoutAConsoleFileWritesToTheServicesOutput) {
    Support::OutputCapture capture;
    EXPECT_EQ(runProcess("sh -c 'echo out; echo err >&2'", folder.path(), nullptr), 2);
    EXPECT_EQ(capture.output(), "out\nerr\n");
}

TEST_F(LegacyRunTest, FileInThePlaceOfTheSceneIsReplaced) {
    const std::string sought = "url='index.x3d'";
    state.fettlePath = tool("fettle", "mkfifo saveFrame.x3d\n");
    submit(R"({"resource":"r","options":"screenshot"})");
    EXPECT_TRUE(runTool(1));
    EXPECT_NE(folder.read("1/saveFrame.x3d").find(sought), std::string::npos);
}

TEST_F(LegacyRunTest, SceneThatCannotBeWrittenLeavesTheToolsLine) {
    state.fettlePath = tool("fettle", "mkdir saveFrame.x3d; exit 0\n");
    submit(R"({"resource":"r","options":"screenshot"})");
    EXPECT_TRUE(runTool(1));
    EXPECT_EQ(state.store->getJobRecord(1).state, LegacyJobStates::closed);
    EXPECT_EQ(state.store->getCommandLine("r?options=screenshot"),
              state.fettlePath + " -i \"r\" -J statistics.html -V --x3d index.x3d ");
    EXPECT_FALSE(fs::exists(folder.path("1/console_glimt.txt")));
}

TEST_F(LegacyRunTest, LastPlaceholderOfTheSceneIsReplaced) {
    state.fettlePath = "true";
    state.screenshotTemplate = "$I$ and $I$ end\n";
    submit(R"({"resource":"r","options":"screenshot","format":"gltf"})");
    EXPECT_TRUE(runTool(1));
    EXPECT_EQ(folder.read("1/saveFrame.x3d"), "$I$ and index.gltf end\n");
    state.screenshotTemplate = "none\n";
    submit(R"({"resource":"s","options":"screenshot"})");
    EXPECT_TRUE(runTool(2));
    EXPECT_EQ(folder.read("2/saveFrame.x3d"), "none\n");
}

TEST_F(LegacyRunTest, JoinedArgumentsEndInABlank) {
    EXPECT_EQ(joinArguments({}), "");
    EXPECT_EQ(joinArguments({"a", "b"}), "a b ");
}

TEST_F(LegacyRunTest, ToolGetsTheUnquotedWordsAndTheLineKeepsTheQuotes) {
    state.fettlePath = tool("fettle", "for a in \"$@\"; do echo \"[$a]\"; done\n");
    ASSERT_EQ(submit(R"({"resource":"a b","suffix":"x","ops":"restructure"})"), 1u);
    EXPECT_TRUE(runTool(1));
    EXPECT_EQ(folder.read("1/console_fettle.txt"),
              "[-i]\n[a b:x]\n[-J]\n[statistics.html]\n[-F]\n[Scene:cacheopt(true)]\n[--x3d]\n"
              "[index.x3d]\n");
    EXPECT_EQ(state.store->getJobRecord(1).commandLine,
              state.fettlePath +
                  " -i \"a b\":x -J statistics.html -F Scene:\"cacheopt(true)\" --x3d index.x3d ");
    EXPECT_EQ(state.store->getJobRecord(1).state, LegacyJobStates::closed);
    EXPECT_EQ(state.store->getJobRecord(1).timings.size(), 1u);
}

TEST_F(LegacyRunTest, JobIsInProcessWhileTheToolRuns) {
    state.fettlePath = tool("fettle", "cat .status\n");
    submit(R"({"resource":"r"})");
    EXPECT_TRUE(runTool(1));
    EXPECT_EQ(folder.read("1/console_fettle.txt"), "{ \"status\" : 1}\n");
}

TEST_F(LegacyRunTest, ScreenshotRunShowsTheViewersLine) {
    state.fettlePath = tool("fettle", "touch index.glb\n");
    tool("glimt", "echo \"$@\" > seen\n");
    const std::string path = ::getenv("PATH");
    ::setenv("PATH", (folder.path("tools") + ":" + path).c_str(), 1);
    submit(R"({"resource":"r","options":"screenshot","format":"glb"})");
    EXPECT_TRUE(runTool(1));
    submit(R"({"resource":"r","options":"screenshot","format":"html"})");
    EXPECT_TRUE(runTool(2));
    ::setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(state.store->getJobRecord(1).commandLine, "glimt --appThreadCount 0 saveFrame.x3d ");
    EXPECT_EQ(folder.read("1/seen"), "--appThreadCount 0 saveFrame.x3d\n");
    EXPECT_NE(folder.read("1/saveFrame.x3d").find("    <Inline url='index.glb' />\n"),
              std::string::npos);
    EXPECT_FALSE(fs::exists(folder.path("2/saveFrame.x3d"))) << "not for html";
    EXPECT_NE(state.store->getJobRecord(2).commandLine.find(" -V "), std::string::npos);
}

TEST_F(LegacyRunTest, FailedToolTakesNoScreenshot) {
    state.fettlePath = folder.path("none");
    submit(R"({"resource":"r","options":"screenshot"})");
    EXPECT_FALSE(runTool(1));
    EXPECT_EQ(state.store->getJobState("r?options=screenshot"), LegacyJobStates::error);
    EXPECT_FALSE(fs::exists(folder.path("1/saveFrame.x3d")));
}

TEST_F(LegacyRunTest, BatchStopsAtItsFirstFailure) {
    submit(R"({"commands":["sh -c 'echo one'","false","sh -c 'echo three'"],"uid":"u"})");
    EXPECT_FALSE(runBatch(1));
    EXPECT_EQ(folder.read("1/console.txt"), "one\n");
    const JobRecord record = state.store->getJobRecord(1);
    EXPECT_EQ(record.timings.size(), 2u);
    EXPECT_EQ(record.state, LegacyJobStates::error);
    EXPECT_EQ(record.commandLine, "See Resource");
}

TEST_F(LegacyRunTest, EmptyBatchStaysInProcess) {
    submit(R"({"commands":[],"uid":"u"})");
    EXPECT_FALSE(runBatch(1));
    EXPECT_EQ(state.store->getJobState("u"), LegacyJobStates::inProcess);
}

TEST_F(LegacyRunTest, ThreadRunsDeletesAndStops) {
    state.fettlePath = tool("fettle", "touch index.x3d binGeo/a; mkdir binGeo/kept\n");
    submit(R"({"resource":"r"})");
    JobProcThread thread;
    thread.begin();
    EXPECT_TRUE(Support::waitUntil([this] { return fs::exists(folder.path("1/.timings")); }));
    EXPECT_FALSE(fs::exists(folder.path("1/.partial")));
    EXPECT_TRUE(state.store->requestDelete(1));
    EXPECT_TRUE(Support::waitUntil(
        [this] { return state.store->getJobState("r") == LegacyJobStates::deleted; }));
    EXPECT_FALSE(fs::exists(folder.path("1/index.x3d")));
    EXPECT_FALSE(fs::exists(folder.path("1/binGeo/a")));
    EXPECT_TRUE(fs::exists(folder.path("1/binGeo/kept"))) << "folders stay, empty ones too";
    thread.requestStop();
    EXPECT_EQ(thread.join(), 0);
}

TEST_F(LegacyRunTest, ThreadThatIsStoppedAtOnceEnds) {
    for (int i = 0; i < 20; ++i) {
        JobProcThread thread;
        thread.begin();
        thread.requestStop();
        EXPECT_EQ(thread.join(), 0);
    }
}

TEST(MimeExtensions, OnlyTheWholeTypeCounts) {
    EXPECT_EQ(extensionForMime("text/plain"), "txt");
    EXPECT_EQ(extensionForMime("image/png"), "png");
    EXPECT_EQ(extensionForMime("model/x3d+xml"), "x3d");
    EXPECT_EQ(extensionForMime("model/x3d+vrml"), "x3dv");
    for (const char* other : {"", "text/plain; charset=utf-8", "Text/Plain", "image/jpeg"})
        EXPECT_EQ(extensionForMime(other), "") << other;
}

} // namespace
} // namespace OstrandService

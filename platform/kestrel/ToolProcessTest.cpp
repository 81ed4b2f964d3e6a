#include "platform/kestrel/ToolProcess.h"

#include "platform/kestrel/ToolStand.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kestrel {

/// Starts, consoles and exit codes.
class ToolProcessTest : public ToolStand {};

TEST_F(ToolProcessTest, LineWithoutAProgramIsNotStarted) {
    EXPECT_FALSE(start(""));
    EXPECT_FALSE(start(" \t\n"));
    EXPECT_FALSE(start("''"));
    EXPECT_FALSE(start("true 'x"));
    EXPECT_FALSE(start("true \\"));
}

TEST_F(ToolProcessTest, ZeroByteIsNotCutOff) {
    EXPECT_FALSE(start(std::string("true\0", 5)));
    EXPECT_FALSE(start(std::string("true a\0b", 8)));
}

TEST_F(ToolProcessTest, MissingProgramIsNotStarted) {
    EXPECT_FALSE(start("no-such-program-anywhere"));
    EXPECT_FALSE(start("./missing"));
    EXPECT_FALSE(start(path("missing")));
}

TEST_F(ToolProcessTest, WhatIsNotExecutableIsNotStarted) {
    write("data", "#!/bin/sh\n");
    std::filesystem::permissions(path("data"), std::filesystem::perms::owner_read);
    EXPECT_FALSE(start("./data"));
    EXPECT_FALSE(start(folder));
    program("lost", "#!/no/such/interpreter\n");
    EXPECT_FALSE(start("./lost"));
}

TEST_F(ToolProcessTest, ScriptWithoutInterpreterLineIsNotStarted) {
    program("bare", "echo ran\n");
    EXPECT_FALSE(start("./bare"));
    program("empty", "");
    EXPECT_FALSE(start("./empty"));
    EXPECT_EQ(console(), "");
}

TEST_F(ToolProcessTest, MissingWorkFolderIsAStartFailure) {
    ToolStart what = plan("true");
    what.workDir = path("missing");
    EXPECT_FALSE(ToolProcess::start(what));
    what.workDir = "";
    EXPECT_FALSE(ToolProcess::start(what));
}

TEST_F(ToolProcessTest, FailedStartLeavesNoChild) {
    write("data", "");
    start("./data");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ToolProcessTest, ExitCodeIsTheTools) {
    EXPECT_EQ(run("true"), 0);
    EXPECT_EQ(run("false"), 1);
    EXPECT_EQ(run("sh -c 'exit 3'"), 3);
    EXPECT_EQ(run("sh -c 'exit 255'"), 255);
    EXPECT_EQ(run("sh -c 'exit 137'"), 137);
}

TEST_F(ToolProcessTest, DeathByASignalIsNotZero) {
    EXPECT_EQ(run("sh -c 'kill -TERM $$'"), 128 + SIGTERM);
    EXPECT_EQ(run("sh -c 'kill -SEGV $$'"), 128 + SIGSEGV);
    EXPECT_EQ(run("sh -c 'kill -KILL $$'"), 128 + SIGKILL);
}

TEST_F(ToolProcessTest, ArgumentsArriveAsSplit) {
    script("show", "for word; do echo \"[$word]\"; done");
    EXPECT_EQ(run(R"(./show a 'b c' "" \" '$HOME *')"), 0);
    EXPECT_EQ(console(), "[a]\n[b c]\n[]\n[\"]\n[$HOME *]\n");
}

TEST_F(ToolProcessTest, RunsInTheWorkFolder) {
    std::filesystem::create_directory(path("job"));
    ToolStart what = plan("pwd -P");
    what.workDir = path("job");
    EXPECT_EQ(run(what), 0);
    EXPECT_EQ(console(), std::filesystem::canonical(path("job")).string() + "\n");
}

TEST_F(ToolProcessTest, BothStreamsAreAppendedAcrossRuns) {
    write("console.txt", "before\n");
    EXPECT_EQ(run("sh -c 'echo out; echo err >&2; echo out'"), 0);
    EXPECT_EQ(run("sh -c 'echo second; exit 1'"), 1);
    EXPECT_EQ(console(), "before\nout\nerr\nout\nsecond\n");
}

TEST_F(ToolProcessTest, ToolsThatRunAtOnceDoNotOverwriteEachOther) {
    script("lines", "i=0; while [ $i -lt 50 ]; do echo line; i=$((i+1)); done");
    const auto first = start("./lines");
    const auto second = start("./lines");
    ASSERT_TRUE(first && second);
    first->waitForEnd();
    second->waitForEnd();
    EXPECT_EQ(console().size(), 100 * std::string("line\n").size());
}

TEST_F(ToolProcessTest, ConsoleFileIsReadableForAll) {
    const mode_t former = ::umask(022);
    EXPECT_EQ(run("true"), 0);
    ::umask(former);
    struct stat status = {};
    ASSERT_EQ(::stat(path("console.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST_F(ToolProcessTest, ToolRunsWithoutAConsole) {
    std::filesystem::create_directory(path("console.txt"));
    script("talk", "readlink /proc/$$/fd/1 /proc/$$/fd/2 > seen; echo out; echo err >&2; exit 7");
    EXPECT_EQ(run("./talk"), 7);
    EXPECT_EQ(read("seen"), path("seen") + "\n/dev/null\n");
    ToolStart what = plan("sh -c 'echo out && exit 7'");
    what.consolePath = path("missing/console.txt");
    EXPECT_EQ(run(what), 7);
}

TEST_F(ToolProcessTest, PipeWithoutReaderInTheConsolesPlaceHoldsNobodyUp) {
    ASSERT_EQ(::mkfifo(path("console.txt").c_str(), 0600), 0);
    EXPECT_EQ(run("sh -c 'echo out && exit 7'"), 7);
}

TEST_F(ToolProcessTest, ServiceWithClosedStandardStreamsGivesTheConsole) {
    const int formerInput = ::dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    const int code = run("sh -c 'echo out; echo err >&2; cat'");
    ::dup2(formerInput, STDIN_FILENO);
    ::close(formerInput);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(console(), "out\nerr\n");
}

TEST_F(ToolProcessTest, NoDescriptorStaysBehind) {
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto before = openFiles();
    run("true");
    run("./missing");
    std::filesystem::create_directory(path("folder"));
    run("./folder");
    start("true");
    EXPECT_EQ(openFiles(), before);
}

} // namespace Kestrel

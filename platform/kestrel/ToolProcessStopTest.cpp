#include "platform/kestrel/ToolProcess.h"

#include "platform/kestrel/ToolStand.h"

#include <sys/wait.h>
#include <thread>

namespace Kestrel {

/// Stops before, at and after a tool's end.
class ToolProcessStopTest : public ToolStand {
public:
    /// A tool that leaves a process of its own in its group, whose id is in the file "pid", and
    /// then does `last`.
    std::unique_ptr<ToolProcess> startWithHelper(const std::string& last) const {
        script("tool", "sleep 1000 & echo $! > pid\n" + last);
        return start("./tool");
    }

    static bool hasChild() {
        siginfo_t end = {};
        return ::waitid(P_ALL, 0, &end, WEXITED | WNOHANG | WNOWAIT) == 0;
    }
};

TEST_F(ToolProcessStopTest, StoppedToolReadsAsZero) {
    const auto tool = start("sleep 1000");
    ASSERT_TRUE(tool);
    tool->terminate();
    EXPECT_EQ(tool->waitForEnd(), 0);
    tool->reap();
    EXPECT_FALSE(hasChild());
}

TEST_F(ToolProcessStopTest, StopReachesAWaitUnderWay) {
    script("tool", "echo $$ > pid; exec sleep 1000");
    const auto tool = start("./tool");
    ASSERT_TRUE(tool);
    std::thread killer([&] {
        EXPECT_NE(readPid("pid"), 0);
        tool->terminate();
    });
    EXPECT_EQ(tool->waitForEnd(), 0);
    killer.join();
    tool->reap();
}

TEST_F(ToolProcessStopTest, StopTakesTheWholeGroup) {
    const auto tool = startWithHelper("wait");
    ASSERT_TRUE(tool);
    const pid_t helper = readPid("pid");
    ASSERT_NE(helper, 0);
    EXPECT_TRUE(isAlive(helper));
    tool->terminate();
    EXPECT_EQ(tool->waitForEnd(), 0);
    tool->reap();
    EXPECT_TRUE(becomesTrue([&] { return !isAlive(helper); }));
}

TEST_F(ToolProcessStopTest, StopIgnoresTheToolsOwnHandlers) {
    script("tool", "trap '' TERM INT HUP; echo $$ > pid; while :; do sleep 1; done");
    const auto tool = start("./tool");
    ASSERT_TRUE(tool);
    EXPECT_NE(readPid("pid"), 0);
    tool->terminate();
    tool->terminate();
    EXPECT_EQ(tool->waitForEnd(), 0);
    tool->reap();
}

TEST_F(ToolProcessStopTest, CodeOfAToolThatEndedBeforeTheStopStands) {
    const auto tool = start("sh -c 'exit 3'");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->waitForEnd(), 3);
    tool->terminate();
    EXPECT_EQ(tool->waitForEnd(), 3);
    tool->reap();
}

TEST_F(ToolProcessStopTest, UnaskedKillBeforeTheStopStaysAFailure) {
    const auto tool = start("sh -c 'kill -KILL $$'");
    ASSERT_TRUE(tool);
    siginfo_t end = {};
    ASSERT_EQ(::waitid(P_ALL, 0, &end, WEXITED | WNOWAIT), 0);
    tool->terminate();
    EXPECT_EQ(tool->waitForEnd(), 128 + SIGKILL);
    tool->reap();
}

TEST_F(ToolProcessStopTest, StopBetweenEndAndReapTakesWhatIsLeftOfTheGroup) {
    const auto tool = startWithHelper("exit 3");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->waitForEnd(), 3);
    const pid_t helper = readPid("pid");
    EXPECT_TRUE(isAlive(helper));
    tool->terminate();
    EXPECT_TRUE(becomesTrue([&] { return !isAlive(helper); }));
    tool->reap();
}

TEST_F(ToolProcessStopTest, StopAfterTheReapReachesNobody) {
    script("tool", "while :; do echo beat >> beats; sleep 0.01; done & echo $! > pid; exit 3");
    const auto tool = start("./tool");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->waitForEnd(), 3);
    tool->reap();
    tool->reap();
    tool->terminate();
    EXPECT_EQ(tool->waitForEnd(), std::nullopt);
    // What an unstopped tool left behind in its group still lives.
    const pid_t helper = readPid("pid");
    const std::size_t beats = read("beats").size();
    EXPECT_TRUE(becomesTrue([&] { return read("beats").size() > beats + 10; }));
    ::kill(helper, SIGKILL);
    EXPECT_TRUE(becomesTrue([&] { return !isAlive(helper); }));
}

TEST_F(ToolProcessStopTest, EndedToolIsKeptUntilTheReap) {
    const auto tool = start("true");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->waitForEnd(), 0);
    EXPECT_TRUE(hasChild());
    tool->reap();
    EXPECT_FALSE(hasChild());
}

TEST_F(ToolProcessStopTest, ReapAndDestructionWaitForTheEnd) {
    const auto tool = start("sh -c 'sleep 0.05; echo done'");
    ASSERT_TRUE(tool);
    tool->reap();
    EXPECT_EQ(console(), "done\n");
    ASSERT_TRUE(start("sh -c 'sleep 0.05; echo again'"));
    EXPECT_EQ(console(), "done\nagain\n");
    EXPECT_FALSE(hasChild());
}

TEST_F(ToolProcessStopTest, NoRoundAgainstAConcurrentStopHangsOrIsLost) {
    const std::vector<std::string> lines = {"sleep 1000", "true", "sh -c 'exit 3'"};
    for (std::size_t round = 0; round < 300; ++round) {
        const std::size_t kind = round % lines.size();
        const std::shared_ptr<ToolProcess> tool = start(lines[kind]);
        ASSERT_TRUE(tool);
        std::thread killer([tool, round] {
            for (std::size_t pause = 0; pause < round % 7; ++pause)
                std::this_thread::yield();
            tool->terminate();
            tool->terminate();
        });
        const std::optional<int> code = tool->waitForEnd();
        tool->reap();
        killer.join();
        ASSERT_TRUE(code == 0 || (kind == 2 && code == 3)) << "round " << round;
    }
    EXPECT_FALSE(hasChild());
}

} // namespace Kestrel

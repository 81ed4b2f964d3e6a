#include "platform/kestrel/ToolProcess.h"

#include "platform/kestrel/ToolStand.h"

#include <algorithm>
#include <netinet/in.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kestrel {

/// What a tool finds around itself, as it tells it.
class ToolProcessChildTest : public ToolStand {
public:
    /// The value of a field of the tool's /proc/self/status.
    std::string statusField(const std::string& name) const {
        std::istringstream lines(console());
        for (std::string line; std::getline(lines, line);) {
            if (line.compare(0, name.size() + 1, name + ":") == 0)
                return line.substr(line.find_first_not_of(" \t", name.size() + 1));
        }
        return "";
    }

    /// How often the tool's environment holds this line.
    std::ptrdiff_t environmentHas(const std::string& line) const {
        std::istringstream lines(console());
        std::ptrdiff_t count = 0;
        for (std::string entry; std::getline(lines, entry);)
            count += entry == line ? 1 : 0;
        return count;
    }
};

TEST_F(ToolProcessChildTest, InputIsTheNullDevice) {
    EXPECT_EQ(run("readlink /proc/self/fd/0"), 0);
    EXPECT_EQ(run("cat"), 0);
    EXPECT_EQ(console(), "/dev/null\n");
}

TEST_F(ToolProcessChildTest, BothStreamsAreTheConsole) {
    EXPECT_EQ(run("readlink /proc/self/fd/1 /proc/self/fd/2"), 0);
    EXPECT_EQ(console(), path("console.txt") + "\n" + path("console.txt") + "\n");
}

TEST_F(ToolProcessChildTest, ServicesDescriptorsAreNotHandedOn) {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    const int high = ::dup2(listener, 50);
    // The list shows the descriptor too through which it is read.
    EXPECT_EQ(run("ls /proc/self/fd"), 0);
    EXPECT_EQ(console(), "0\n1\n2\n3\n");
    ::close(high);
    ::close(listener);
}

TEST_F(ToolProcessChildTest, SignalsAreAsNew) {
    sigset_t blocked;
    sigset_t former;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGRTMIN);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &former), 0);
    auto* const formerPipe = std::signal(SIGPIPE, SIG_IGN);
    auto* const formerHup = std::signal(SIGHUP, SIG_IGN);
    auto* const formerUsr1 = std::signal(SIGUSR1, [](int) {});
    EXPECT_EQ(run("cat /proc/self/status"), 0);
    std::signal(SIGPIPE, formerPipe);
    std::signal(SIGHUP, formerHup);
    std::signal(SIGUSR1, formerUsr1);
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
    EXPECT_EQ(statusField("SigBlk"), "0000000000000000");
    EXPECT_EQ(statusField("SigIgn"), "0000000000000000");
    EXPECT_EQ(statusField("SigCgt"), "0000000000000000");
}

TEST_F(ToolProcessChildTest, BlockedStopSignalEndsAToolAllTheSame) {
    sigset_t blocked;
    sigset_t former;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &former), 0);
    EXPECT_EQ(run("sh -c 'kill -TERM $$; exit 3'"), 128 + SIGTERM);
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

TEST_F(ToolProcessChildTest, GroupIsTheToolsOwn) {
    EXPECT_EQ(run("cat /proc/self/stat"), 0);
    std::istringstream fields(console());
    pid_t pid = 0;
    pid_t parent = 0;
    pid_t group = 0;
    std::string name;
    std::string state;
    fields >> pid >> name >> state >> parent >> group;
    EXPECT_EQ(group, pid);
    EXPECT_EQ(parent, ::getpid());
}

TEST_F(ToolProcessChildTest, EnvironmentIsTheServicesOwn) {
    ::setenv("TOOL_TEST_KEPT", "inherited value", 1);
    EXPECT_EQ(run("env"), 0);
    ::unsetenv("TOOL_TEST_KEPT");
    EXPECT_EQ(environmentHas("TOOL_TEST_KEPT=inherited value"), 1);
    EXPECT_EQ(environmentHas(std::string("PATH=") + std::getenv("PATH")), 1);
}

TEST_F(ToolProcessChildTest, GivenVariablesAreAddedOrReplaceInherited) {
    ::setenv("TOOL_TEST_A", "inherited", 1);
    ::setenv("TOOL_TEST_AB", "longer name", 1);
    ToolStart what = plan("env");
    what.environment = {
        {"TOOL_TEST_A", "given"}, {"TOOL_TEST_NEW", "a=b c"}, {"TOOL_TEST_EMPTY", ""}};
    EXPECT_EQ(run(what), 0);
    EXPECT_STREQ(std::getenv("TOOL_TEST_A"), "inherited");
    ::unsetenv("TOOL_TEST_A");
    ::unsetenv("TOOL_TEST_AB");
    EXPECT_EQ(environmentHas("TOOL_TEST_A=given"), 1);
    EXPECT_EQ(environmentHas("TOOL_TEST_A=inherited"), 0);
    EXPECT_EQ(environmentHas("TOOL_TEST_AB=longer name"), 1);
    EXPECT_EQ(environmentHas("TOOL_TEST_NEW=a=b c"), 1);
    EXPECT_EQ(environmentHas("TOOL_TEST_EMPTY="), 1);
}

TEST_F(ToolProcessChildTest, LastOfEqualNamesCountsAndImpossibleOnesAreLeftOut) {
    ToolStart what = plan("env");
    what.environment = {{"TOOL_TEST_A", "first"},
                        {"TOOL_TEST_A", "last"},
                        {"", "no name"},
                        {"TOOL_TEST_B=x", "y"},
                        {"TOOL_TEST_C", std::string("cut\0off", 7)}};
    EXPECT_EQ(run(what), 0);
    EXPECT_EQ(environmentHas("TOOL_TEST_A=first"), 0);
    EXPECT_EQ(environmentHas("TOOL_TEST_A=last"), 1);
    EXPECT_EQ(environmentHas("=no name"), 0);
    EXPECT_EQ(environmentHas("TOOL_TEST_B=x=y"), 0);
    EXPECT_EQ(environmentHas("TOOL_TEST_C=cut"), 0);
}

TEST_F(ToolProcessChildTest, GivenPathIsTheToolsAndNotTheLookups) {
    std::filesystem::create_directory(path("bin"));
    script("bin/only-there", "");
    ToolStart what = plan("only-there");
    what.environment = {{"PATH", path("bin")}};
    EXPECT_FALSE(ToolProcess::start(what));
}

TEST_F(ToolProcessChildTest, SoftFileLimitIsTheFormerOne) {
    rlimit former = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
    const rlimit low = {100, former.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    ToolProcess::raiseFileLimit();
    rlimit raised = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &raised), 0);
    EXPECT_EQ(raised.rlim_cur, former.rlim_max);
    // Called again there is nothing to raise, and the former limit is not forgotten.
    ToolProcess::raiseFileLimit();

    // The limit comes a moment after the start, so the tool looks more than once.
    script("limit", "i=0; until [ $(ulimit -Sn) = 100 ] || [ $i = 500 ]; do\n"
                    "sleep 0.01; i=$((i+1)); done; ulimit -Sn; ulimit -Hn");
    EXPECT_EQ(run("./limit"), 0);
    EXPECT_EQ(console(), "100\n" + std::to_string(former.rlim_max) + "\n");
    ::setrlimit(RLIMIT_NOFILE, &former);
}

} // namespace Kestrel

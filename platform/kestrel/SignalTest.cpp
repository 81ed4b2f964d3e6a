#include "platform/kestrel/Signal.h"

#include "platform/kestrel/ToolStand.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <thread>
#include <unistd.h>

namespace Kestrel {

namespace {

class Handler : public Signal::SignalHandler {
public:
    void handleSignal() override {
        caller = std::this_thread::get_id();
        if (action)
            action();
        ++calls;
    }

    std::function<void()> action;
    std::atomic<int> calls{0};
    std::atomic<std::thread::id> caller{}; ///< of the last call
};

/// Use before main, in an order that nobody knows.
const bool usedEarly = [] {
    Handler handler;
    Signal::the.addSignalHandler(0, handler);
    Signal::the.removeSignalHandler(0);
    return true;
}();

/// Ends the part of a test that runs in a process of its own, with status 0 if all of it holds.
class Checks {
public:
    void that(bool holds, const char* text) {
        if (!holds) {
            std::fprintf(stderr, "does not hold: %s\n", text);
            failed = true;
        }
    }
    [[noreturn]] void end() const { std::exit(failed ? 1 : 0); }

private:
    bool failed = false;
};

#define CHECK_THAT(checks, condition) (checks).that(condition, #condition)

bool isPending(int number) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, number) == 1;
}

/// Sends a signal to this process and returns when it has been taken in.
void sendAndSettle(int number) {
    for (const int each : {number, SIGINT}) {
        // The reader takes the second one only when it is done with the first.
        ::kill(::getpid(), each);
        ToolStand::becomesTrue([each] { return !isPending(each); });
    }
}

bool isCalled(const Handler& handler) {
    return ToolStand::becomesTrue([&handler] { return handler.calls > 0; });
}

[[noreturn]] void deliverOnTheSignalThread() {
    Checks checks;
    Signal::the.takeOver();
    Signal::the.takeOver();
    Handler handler;
    Signal::the.addSignalHandler(0, handler);
    for (const int number : {SIGTERM, SIGINT}) {
        handler.calls = 0;
        ::kill(::getpid(), number);
        CHECK_THAT(checks, isCalled(handler));
        CHECK_THAT(checks, handler.caller != std::this_thread::get_id());
    }
    Signal::the.removeSignalHandler(0);
    checks.end();
}

[[noreturn]] void deliverAnEarlySignalAtRegistration() {
    Checks checks;
    Signal::the.takeOver();
    sendAndSettle(SIGTERM);
    Handler handler;
    Signal::the.addSignalHandler(0, handler);
    CHECK_THAT(checks, handler.calls == 1);
    CHECK_THAT(checks, handler.caller == std::this_thread::get_id());
    Signal::the.removeSignalHandler(0);
    checks.end();
}

[[noreturn]] void surviveSignalsAfterTheRemoval() {
    Checks checks;
    Signal::the.takeOver();
    Handler handler;
    Signal::the.addSignalHandler(0, handler);
    ::kill(::getpid(), SIGTERM);
    CHECK_THAT(checks, isCalled(handler));
    Signal::the.removeSignalHandler(0);
    Signal::the.removeSignalHandler(0);
    sendAndSettle(SIGTERM);
    CHECK_THAT(checks, handler.calls == 1);
    Handler next;
    Signal::the.addSignalHandler(0, next);
    CHECK_THAT(checks, next.calls == 1);
    CHECK_THAT(checks, handler.calls == 1);
    Signal::the.removeSignalHandler(0);
    checks.end();
}

[[noreturn]] void waitForACallUnderWay() {
    Checks checks;
    Signal::the.takeOver();
    Handler handler;
    std::atomic<bool> entered{false};
    std::atomic<bool> removing{false};
    std::atomic<bool> left{false};
    handler.action = [&] {
        entered = true;
        ToolStand::becomesTrue([&] { return removing.load(); });
        Thread::sleep(20);
        left = true;
    };
    Signal::the.addSignalHandler(0, handler);
    ::kill(::getpid(), SIGTERM);
    CHECK_THAT(checks, ToolStand::becomesTrue([&] { return entered.load(); }));
    removing = true;
    Signal::the.removeSignalHandler(0);
    CHECK_THAT(checks, left);
    checks.end();
}

[[noreturn]] void letAHandlerRemoveItself() {
    Checks checks;
    Signal::the.takeOver();
    Handler handler;
    handler.action = [] { Signal::the.removeSignalHandler(0); };
    Signal::the.addSignalHandler(0, handler);
    ::kill(::getpid(), SIGTERM);
    CHECK_THAT(checks, isCalled(handler));
    sendAndSettle(SIGTERM);
    CHECK_THAT(checks, handler.calls == 1);
    checks.end();
}

[[noreturn]] void ignoreOtherTypes() {
    Checks checks;
    Signal::the.takeOver();
    Handler handler;
    Handler other;
    Signal::the.addSignalHandler(0, handler);
    Signal::the.addSignalHandler(1, other);
    Signal::the.removeSignalHandler(1);
    ::kill(::getpid(), SIGTERM);
    CHECK_THAT(checks, isCalled(handler));
    CHECK_THAT(checks, other.calls == 0);
    Signal::the.removeSignalHandler(0);
    checks.end();
}

[[noreturn]] void writeToAClosedPipe() {
    Checks checks;
    std::signal(SIGPIPE, SIG_DFL);
    Signal::the.takeOver();
    int ends[2] = {-1, -1};
    CHECK_THAT(checks, ::pipe(ends) == 0);
    ::close(ends[0]);
    CHECK_THAT(checks, ::write(ends[1], "x", 1) == -1 && errno == EPIPE);
    checks.end();
}

[[noreturn]] void readAnExitCodeAfterAnInheritedIgnore() {
    Checks checks;
    std::signal(SIGCHLD, SIG_IGN);
    Signal::the.takeOver();
    const auto tool = ToolProcess::start({"sh -c 'exit 3'", "/", "/dev/null", {}});
    CHECK_THAT(checks, tool && tool->waitForEnd() == 3);
    checks.end();
}

/// Each in a process of its own, since there is no way back from takeOver().
class SignalDeathTest : public testing::Test {
public:
    SignalDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

const testing::ExitedWithCode inOrder(0);

} // namespace

TEST(SignalTest, CanBeUsedBeforeMain) {
    EXPECT_TRUE(usedEarly);
}

TEST_F(SignalDeathTest, BothSignalsReachTheHandlerOnAThreadOfTheirOwn) {
    EXPECT_EXIT(deliverOnTheSignalThread(), inOrder, "");
}

TEST_F(SignalDeathTest, EarlySignalIsDeliveredAtRegistration) {
    EXPECT_EXIT(deliverAnEarlySignalAtRegistration(), inOrder, "");
}

TEST_F(SignalDeathTest, SignalsAfterTheRemovalWaitForTheNextHandler) {
    EXPECT_EXIT(surviveSignalsAfterTheRemoval(), inOrder, "");
}

TEST_F(SignalDeathTest, RemovalWaitsForACallUnderWay) {
    EXPECT_EXIT(waitForACallUnderWay(), inOrder, "");
}

TEST_F(SignalDeathTest, HandlerMayRemoveItself) {
    EXPECT_EXIT(letAHandlerRemoveItself(), inOrder, "");
}

TEST_F(SignalDeathTest, OtherTypesNeverCome) {
    EXPECT_EXIT(ignoreOtherTypes(), inOrder, "");
}

TEST_F(SignalDeathTest, ClosedPipeIsAnError) {
    EXPECT_EXIT(writeToAClosedPipe(), inOrder, "");
}

TEST_F(SignalDeathTest, ExitCodesAreReadableUnderAStarterThatIgnoresChildren) {
    EXPECT_EXIT(readAnExitCodeAfterAnInheritedIgnore(), inOrder, "");
}

} // namespace Kestrel

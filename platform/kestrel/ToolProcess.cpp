#include "platform/kestrel/ToolProcess.h"

#include "platform/kestrel/CommandLine.h"
#include "platform/kestrel/SpawnSetup.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kestrel {

namespace {

/// The limit that tools get back; set once by main, before the first tool.
std::optional<rlimit>& inheritedFileLimit() {
    static std::optional<rlimit> limit;
    return limit;
}

/// Closes a descriptor at the end of a scope.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : number(descriptor) {}
    ~Descriptor() {
        if (number >= 0)
            ::close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    const int number;
};

int openConsole(const std::string& path) {
    const int console = ::open(
        path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (console < 0)
        return ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    // Non-blocking only for the opening, which must not wait for the reader of a pipe.
    const int flags = ::fcntl(console, F_GETFL);
    ::fcntl(console, F_SETFL, flags & ~O_NONBLOCK);
    return console;
}

} // namespace

std::unique_ptr<ToolProcess> ToolProcess::start(const ToolStart& what) {
    const auto words = CommandLine::split(what.commandLine);
    if (!words || words->empty())
        return nullptr;
    const std::string program = CommandLine::locate(words->front(), what.workDir);
    if (program.empty())
        return nullptr;
    const Descriptor console(openConsole(what.consolePath));
    SpawnSetup setup(*words, what.environment);
    pid_t child = 0;
    if (!setup.spawn(program, what.workDir, console.number, child))
        return nullptr;
    // posix_spawn knows no limits, so the child gets its own back a moment after its start.
    if (inheritedFileLimit())
        ::prlimit(child, RLIMIT_NOFILE, &*inheritedFileLimit(), nullptr);
    return std::unique_ptr<ToolProcess>(new ToolProcess(child));
}

ToolProcess::ToolProcess(pid_t child)
    : pid(child), pidFd(static_cast<int>(::syscall(SYS_pidfd_open, child, 0))) {}

ToolProcess::~ToolProcess() {
    if (reaped)
        return;
    waitForEnd();
    reap();
}

std::optional<int> ToolProcess::waitForEnd() {
    const idtype_t kind = pidFd >= 0 ? P_PIDFD : P_PID;
    const id_t which = static_cast<id_t>(pidFd >= 0 ? pidFd : pid);
    siginfo_t info = {};
    while (::waitid(kind, which, &info, WEXITED | WNOWAIT) != 0) {
        if (errno != EINTR)
            return std::nullopt;
    }
    if (info.si_code == CLD_EXITED)
        return info.si_status;
    const std::lock_guard<std::mutex> lock(mutex);
    if (stopped && info.si_status == SIGKILL)
        return 0;
    return 128 + info.si_status;
}

void ToolProcess::reap() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (reaped)
        return;
    if (stopped)
        ::kill(-pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    reaped = true;
    if (pidFd >= 0)
        ::close(pidFd);
    pidFd = -1;
}

void ToolProcess::terminate() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (reaped)
        return;
    stopped = true;
    ::kill(-pid, SIGKILL);
}

void ToolProcess::raiseFileLimit() {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
        return;
    inheritedFileLimit() = limit;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace Kestrel

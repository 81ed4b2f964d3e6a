#include "platform/kestrel/ToolProcess.h"

#include "platform/kestrel/CommandLine.h"
#include "platform/kestrel/SpawnSetup.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kestrel {

namespace {

/// The soft file limit that tools get back; RLIM_INFINITY where it was never raised.
std::atomic<rlim_t> toolFileLimit{RLIM_INFINITY};

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

/// The console file, or -1. Its descriptor is none of the standard three, which the child's own
/// replace, even where the service runs with one of them closed.
int openConsole(const std::string& path) {
    const Descriptor opened(::open(
        path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644));
    if (opened.number < 0)
        return -1;
    // Non-blocking only for the opening, which must not wait for the reader of a pipe.
    ::fcntl(opened.number, F_SETFL, O_APPEND);
    return ::fcntl(opened.number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

/// posix_spawn knows no limits, so the child gets its own back right after its start. A tool
/// reads its limits long after that, as a rule: it is still being linked at this moment.
void restoreFileLimit(pid_t child) {
    const rlim_t soft = toolFileLimit;
    rlimit limit = {};
    if (soft == RLIM_INFINITY || ::prlimit(child, RLIMIT_NOFILE, nullptr, &limit) != 0)
        return;
    if (soft < limit.rlim_cur) {
        limit.rlim_cur = soft;
        ::prlimit(child, RLIMIT_NOFILE, &limit, nullptr);
    }
}

/// An argument with a zero byte can't be handed over whole.
bool canBeHandedOver(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word.find('\0') != std::string::npos)
            return false;
    }
    return !words.empty();
}

} // namespace

std::unique_ptr<ToolProcess> ToolProcess::start(const ToolStart& what) {
    try {
        return startOrThrow(what);
    } catch (const std::exception&) {
        return nullptr; // out of memory
    }
}

std::unique_ptr<ToolProcess> ToolProcess::startOrThrow(const ToolStart& what) {
    const auto words = CommandLine::split(what.commandLine);
    if (!words || !canBeHandedOver(*words))
        return nullptr;
    const std::string program = CommandLine::locate(words->front(), what.workDir);
    if (program.empty())
        return nullptr;
    SpawnSetup setup(*words, what.environment);
    // Made first, so that nothing can fail between the start and the owning of the process.
    std::unique_ptr<ToolProcess> tool(new ToolProcess);
    const Descriptor console(openConsole(what.consolePath));
    const std::optional<pid_t> child = setup.spawn(program, what.workDir, console.number);
    if (!child)
        return nullptr;
    restoreFileLimit(*child);
    tool->adopt(*child);
    return tool;
}

void ToolProcess::adopt(pid_t child) {
    pid = child;
    pidFd = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    reaped = false;
}

ToolProcess::~ToolProcess() {
    reap();
}

bool ToolProcess::hasEnded(siginfo_t& end, int flags) const {
    const idtype_t kind = pidFd >= 0 ? P_PIDFD : P_PID;
    const id_t which = static_cast<id_t>(pidFd >= 0 ? pidFd : pid);
    end = {};
    while (::waitid(kind, which, &end, WEXITED | WNOWAIT | flags) != 0) {
        if (errno != EINTR)
            return false;
    }
    return end.si_pid != 0;
}

std::optional<int> ToolProcess::waitForEnd() {
    siginfo_t end;
    if (reaped || !hasEnded(end, 0))
        return std::nullopt;
    if (end.si_code == CLD_EXITED)
        return end.si_status;
    const std::lock_guard<std::mutex> lock(mutex);
    return stoppedAlive && end.si_status == SIGKILL ? 0 : 128 + end.si_status;
}

void ToolProcess::reap() {
    if (reaped)
        return;
    // Not under the lock: terminate() must get through while the tool runs.
    siginfo_t end;
    hasEnded(end, 0);
    const std::lock_guard<std::mutex> lock(mutex);
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
    siginfo_t end;
    stopped = true;
    // One that is dead already was not ended by this call, whatever signal it died of.
    if (!hasEnded(end, WNOHANG))
        stoppedAlive = true;
    ::kill(-pid, SIGKILL);
    // It may have left its group; the id is still its own.
    ::kill(pid, SIGKILL);
}

void ToolProcess::raiseFileLimit() {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
        return;
    toolFileLimit = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace Kestrel

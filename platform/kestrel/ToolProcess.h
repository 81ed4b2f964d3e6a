#pragma once

#include <csignal>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Kestrel {

/// What is needed to start a tool.
struct ToolStart {
    std::string commandLine; ///< program and arguments, split by CommandLine
    std::string workDir;     ///< the tool's working folder
    std::string consolePath; ///< file to which both output streams are appended; made if missing
    /// Variables on top of the calling process's own; a name given here replaces an inherited one.
    std::vector<std::pair<std::string, std::string>> environment;
};

/// One external tool, owned from its start to its end: the only place that makes processes.
///
/// The tool runs in a process group of its own, with the null device as standard input, default
/// signal dispositions, an empty signal mask, the soft file limit that the service itself was
/// started with, and no other open file of the service. A console file that can't be opened does
/// not keep the tool from starting: its output then goes to the null device.
///
/// The file limit is set from outside just after the start: on a busy machine a tool may have seen
/// the service's raised limit by then, or passed it on to a program of its own.
///
/// One thread owns the object, waits and reaps; terminate() may be called by any thread meanwhile.
/// The order of the owner is: waitForEnd(), whatever must be seen while the tool still counts as
/// running, reap(). Until reap() the ended process is kept by the system, so that neither its
/// process id nor its group can be given to another one, and a late terminate() hits nobody else.
/// For that the disposition of SIGCHLD must be the default one, which Signal::takeOver() sees to,
/// and nobody else in the process may wait for children that are not its own.
class ToolProcess {
public:
    /// Starts the tool. Null where it can't be started: no word in the command line, no such
    /// program, not executable, a script without an interpreter line, working folder missing, a
    /// zero byte in the command line, out of processes or memory. Throws nothing.
    static std::unique_ptr<ToolProcess> start(const ToolStart& what);

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    /// Reaps, after a wait for the end where nobody has waited.
    ~ToolProcess();

    /// Waits without a time limit for the tool's end and returns its exit code; 128 plus the
    /// signal's number for a tool that died by a signal, but 0 if that was the SIGKILL of
    /// terminate(); nothing where the code can't be read, as after reap(). Does not reap.
    std::optional<int> waitForEnd();

    /// Releases the ended process, after a wait for its end where nobody has waited. What a
    /// stopped tool left behind in its group is killed first. A second call does nothing.
    void reap();

    /// Kills the tool's whole process group. Does nothing once the tool has been reaped; the exit
    /// code of a tool that had ended before stands.
    void terminate();

    /// Raises this process's soft file limit to the hard one. Tools still get the former one.
    /// Called once, by main, before the first tool.
    static void raiseFileLimit();

private:
    static std::unique_ptr<ToolProcess> startOrThrow(const ToolStart& what);

    ToolProcess() = default;

    /// Takes over a child that has just been started.
    void adopt(pid_t child);

    /// True if the tool has ended, with its end in `end`; waits for it unless `flags` say not to.
    bool hasEnded(siginfo_t& end, int flags) const;

    // Set at the start; the descriptor is closed by reap(), under the mutex.
    pid_t pid = -1; ///< process id and id of the process group
    int pidFd = -1; ///< what the waiter waits for; -1 where the system gave none

    std::mutex mutex;          ///< guards what follows; the owner alone sets `reaped`
    bool stopped = false;      ///< terminate() was called before the tool was reaped
    bool stoppedAlive = false; ///< and the tool was still running then
    bool reaped = true;        ///< there is nothing to wait for; false from the start on
};

} // namespace Kestrel

#pragma once

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
/// One thread owns the object, waits and reaps; terminate() may be called by any thread meanwhile.
/// The order of the owner is: waitForEnd(), whatever must be seen while the tool still counts as
/// running, reap(). Until reap() the ended process is kept by the system, so that neither its
/// process id nor its group can be given to another one, and a late terminate() hits nobody else.
class ToolProcess {
public:
    /// Starts the tool. Null where it can't be started: no word in the command line, no such
    /// program, not executable, working folder missing, out of processes or memory. Throws nothing.
    static std::unique_ptr<ToolProcess> start(const ToolStart& what);

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    /// Reaps, after a wait for the end where nobody has waited.
    ~ToolProcess();

    /// Waits without a time limit for the tool's end and returns its exit code; 128 plus the
    /// signal's number for a tool that died by a signal, but 0 if that was the SIGKILL of
    /// terminate(); nothing where the code can't be read. Does not reap.
    std::optional<int> waitForEnd();

    /// Releases the ended process. What a stopped tool left behind in its group is killed first.
    void reap();

    /// Kills the tool's whole process group. Does nothing once the tool has been reaped.
    void terminate();

    /// Remembers the file limits that the service was started with, for the tools. Called by main
    /// before the soft limit is raised to the hard one, which it does too.
    static void raiseFileLimit();

private:
    explicit ToolProcess(pid_t pid);

    const pid_t pid; ///< process id and id of the process group
    int pidFd = -1;  ///< descriptor that the waiter polls; -1 where the kernel gave none

    std::mutex mutex;     ///< guards what follows
    bool stopped = false; ///< terminate() was called before the end was seen
    bool reaped = false;
};

} // namespace Kestrel

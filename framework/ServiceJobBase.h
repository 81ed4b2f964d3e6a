#pragma once

#include "framework/JobState.h"
#include "platform/hub/EnvironmentList.h"

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kestrel {
class ToolProcess;
}

namespace OstrandService {

/// Root of all jobs that go through the framework's queue: an id, a work folder, a state, and the
/// tool that runs.
///
/// Jobs are held by boost::shared_ptr with a deleter of the concrete class, since the destructor is
/// not virtual: the provider's job table, the queue and the worker share one. A job is touched by
/// the web threads that accept, list and stop it and by the worker that runs it.
class ServiceJobBase {
public:
    using Commands = std::vector<std::vector<std::string>>;

    /// Stores the state. A concrete job may keep it on disk as well.
    virtual void setState(JobState newState);

    /// Called by a worker for a job that was stopped and is to be forgotten. Does nothing here.
    virtual void cleanup();

    /// Appends the job's commands; of each the first string is the whole command line. None here.
    virtual void getCommands(Commands& commands);

    /// Fills in the variables for the job's tools.
    virtual void getEnvironment(EnvironmentList& env) = 0;

    /// Makes the job's folder below `basePath` and what belongs into it. Reports nothing: without a
    /// folder the job fails when its tool is started.
    virtual void prepare(const std::string& basePath) = 0;

    /// Runs the job's commands one after the other on the calling worker and returns when the last
    /// tool has ended. A failed command does not stop the next one; the last one decides the state.
    void run();

    /// Runs one command and sets the state from its outcome. Output goes to "console.txt" in the
    /// job's folder, behind what is there.
    void runCommand(const std::vector<std::string>& command, const EnvironmentList& env);

    /// Stops the tool that is running; the state becomes TERMINATING for the moment, and the
    /// stopped tool then counts as one that ended well. Does nothing while no tool runs. Commands
    /// that are left are still run. Any thread.
    void kill();

    /// The text of the present state.
    std::string stateName() const { return jobStateName(state); }

    /// Takes the state from the folder's ".status"; ERROR, set through setState(), where there is
    /// none or it makes no sense.
    void readStatus();

    /// Writes the present state to ".status"; false where it could not be written.
    bool writeStatus() const;

    /// The job's folder; "." until prepare().
    std::string workDir() const;
    void setWorkDir(const std::string& path);

    std::atomic<JobState> state{JobState::INVALID};
    std::atomic<const char*> resultText{""}; ///< text of the job list, always a literal
    std::atomic<std::uint32_t> id{0};        ///< place in the provider's job table

protected:
    /// The same for another state, which the job is about to take.
    bool writeStatus(JobState written) const;

    ServiceJobBase();
    ~ServiceJobBase();
    ServiceJobBase(const ServiceJobBase&) = delete;
    ServiceJobBase& operator=(const ServiceJobBase&) = delete;

private:
    void reportStartFailure(const std::string& consolePath) const;
    void endCommand(const std::shared_ptr<Kestrel::ToolProcess>& tool);

    mutable std::mutex workDirMutex; ///< guards `folder`; never held over a file operation
    std::string folder = ".";

    std::mutex processMutex; ///< guards `process`; kill() holds it while it sets the state, a file
                             ///< write included: only kill() and the end of a tool wait for it
    std::shared_ptr<Kestrel::ToolProcess> process; ///< the running tool, set only while one runs
};

} // namespace OstrandService

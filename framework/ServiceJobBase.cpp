#include "framework/ServiceJobBase.h"

#include "framework/JobFolder.h"
#include "framework/StatusFile.h"
#include "framework/ToolEnvironment.h"
#include "platform/hub/AtomicFile.h"
#include "platform/hub/HubFiles.h"
#include "platform/kestrel/ToolProcess.h"

#include <iostream>

namespace OstrandService {

namespace {

constexpr const char* spawnError =
    "Error spawning process. Called tool most likely not executable or found\n";

} // namespace

ServiceJobBase::ServiceJobBase() = default;
ServiceJobBase::~ServiceJobBase() = default;

void ServiceJobBase::setState(JobState newState) {
    state = newState;
}

void ServiceJobBase::cleanup() {}

void ServiceJobBase::getCommands(Commands& /*commands*/) {}

std::string ServiceJobBase::workDir() const {
    const std::lock_guard<std::mutex> lock(workDirMutex);
    return folder;
}

void ServiceJobBase::setWorkDir(const std::string& path) {
    const std::lock_guard<std::mutex> lock(workDirMutex);
    folder = path;
}

void ServiceJobBase::run() {
    setState(JobState::IN_PROCESS);
    resultText = "See Resource";
    Commands commands;
    getCommands(commands);
    EnvironmentList env;
    getEnvironment(env);
    // No look at the state between two commands: a later success hides an earlier failure, and a
    // job without commands stays IN_PROCESS. Clients rely on both.
    for (const std::vector<std::string>& command : commands)
        runCommand(command, env);
}

void ServiceJobBase::runCommand(const std::vector<std::string>& command,
                                const EnvironmentList& env) {
    if (command.empty()) {
        setState(JobState::ERROR);
        return;
    }
    Kestrel::ToolStart what;
    what.commandLine = command.front();
    what.workDir = workDir();
    what.consolePath = what.workDir + "/console.txt";
    what.environment = toolEnvironment(what.commandLine, env);
    const std::shared_ptr<Kestrel::ToolProcess> tool = Kestrel::ToolProcess::start(what);
    if (!tool) {
        reportStartFailure(what.consolePath);
        setState(JobState::ERROR);
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(processMutex);
        process = tool;
    }
    endCommand(tool);
}

void ServiceJobBase::reportStartFailure(const std::string& consolePath) const {
    std::cout << spawnError << std::flush;
    JobFolder::appendConsole(consolePath, spawnError);
}

// The state is set while the tool still counts as running and is cleared after it: a stop that
// comes in between sets TERMINATING behind the final state, which is what the worker loop looks
// for. The ended process is kept by the system until the reap, so that such a stop hits no
// stranger.
void ServiceJobBase::endCommand(const std::shared_ptr<Kestrel::ToolProcess>& tool) {
    struct Release {
        ~Release() {
            const std::lock_guard<std::mutex> lock(job.processMutex);
            tool.reap();
            // A job that was queued twice may run on two workers; each clears only its own tool.
            if (job.process.get() == &tool)
                job.process.reset();
        }
        ServiceJobBase& job;
        Kestrel::ToolProcess& tool;
    };
    const Release release{*this, *tool};
    const std::optional<int> exitCode = tool->waitForEnd();
    setState(exitCode && *exitCode == 0 ? JobState::CLOSED : JobState::ERROR);
}

void ServiceJobBase::kill() {
    const std::lock_guard<std::mutex> lock(processMutex);
    if (!process)
        return;
    setState(JobState::TERMINATING);
    process->terminate();
}

void ServiceJobBase::readStatus() {
    std::string text;
    std::optional<JobState> read;
    if (OstrandHub::getFileContents((workDir() + "/.status").c_str(), text))
        read = StatusFile::parse(text);
    if (read)
        state = *read;
    else
        setState(JobState::ERROR);
}

bool ServiceJobBase::writeStatus() const {
    return writeStatus(state);
}

bool ServiceJobBase::writeStatus(JobState written) const {
    // The texts of two states differ in their digit alone, so one is written over the other: this
    // costs a tenth of a new file, and happens twice in every run.
    const std::string path = workDir() + "/.status";
    const std::string text = StatusFile::format(written);
    return OstrandHub::overwriteFile(path, text) || OstrandHub::writeFileAtomically(path, text);
}

} // namespace OstrandService

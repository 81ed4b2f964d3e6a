#include "providers/legacy/ProcessRun.h"

#include "framework/JobFolder.h"
#include "platform/hub/MessageLog.h"
#include "platform/kestrel/ToolProcess.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"

namespace OstrandService {

namespace States = LegacyJobStates;

LegacyJobState runProcess(const std::string& commandLine, const std::string& folder,
                          const char* consoleFileName) {
    Kestrel::ToolStart what;
    what.commandLine = commandLine;
    what.workDir = folder;
    what.consolePath = "/dev/stdout";
    if (consoleFileName) {
        what.consolePath = folder + "/" + consoleFileName;
        // It is there also where the tool can't be started: the job's page goes by it.
        JobFolder::appendConsole(what.consolePath, "");
    }
    const auto tool = Kestrel::ToolProcess::start(what);
    if (!tool) {
        MessageLog::the()->log("Error spawning process.");
        return States::error;
    }
    const std::optional<int> exitCode = tool->waitForEnd();
    tool->reap();
    // A run whose end is unknown counts as a success.
    return !exitCode || *exitCode == 0 ? States::closed : States::error;
}

std::string joinArguments(const std::vector<std::string>& arguments) {
    std::string line;
    for (const std::string& argument : arguments)
        line += argument + " ";
    return line;
}

LegacyJobState runArguments(const std::vector<std::string>& arguments, const std::string& folder,
                            const char* consoleFileName) {
    return runProcess(joinArguments(arguments), folder, consoleFileName);
}

bool runCommandBatch(const JobRecord& record, std::uint32_t /*id*/, const std::string& folder) {
    LegacyState& state = *LegacyState::current;
    LegacyJobState result = States::inProcess;
    state.store->setJobState(record, States::inProcess);
    state.store->setCommandLine(record, "See Resource");
    for (const TranscoderJobDesc::Command& command : record.commands) {
        const double start = state.stopWatch.read();
        result = runProcess(command.line, folder, "console.txt");
        state.store->addTiming(record, {start, state.stopWatch.read()});
        if (result == States::error)
            break;
    }
    state.store->setJobState(record, result);
    return result == States::closed;
}

} // namespace OstrandService

#include "providers/legacy/FettleRun.h"

#include "platform/hub/AtomicFile.h"
#include "providers/legacy/FettleCommand.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"
#include "providers/legacy/ProcessRun.h"

#include <vector>

namespace OstrandService {

namespace {

/// Writes the scene for the viewer and runs it. `arguments` become the viewer's.
void takeScreenshot(const JobRecord& record, const std::string& folder,
                    std::vector<std::string>& arguments) {
    const std::string placeholder = "$I$";
    std::string scene = LegacyState::current->screenshotTemplate;
    const std::string::size_type at = scene.rfind(placeholder);
    if (at != std::string::npos)
        scene.replace(at, placeholder.size(), outputIndexName(record));
    if (!OstrandHub::writeFileAtomically(folder + "/saveFrame.x3d", scene))
        return;
    arguments = {"glimt", "--appThreadCount", "0", "saveFrame.x3d"};
    runArguments(arguments, folder, "console_glimt.txt");
}

} // namespace

// The command line is stored when all is run, and is that of the last run: behind a picture the
// job list shows the viewer's.
bool runFettleJob(const JobRecord& record, std::uint32_t /*id*/, const std::string& folder) {
    LegacyState& state = *LegacyState::current;
    const double start = state.stopWatch.read();
    std::vector<std::string> arguments = fettleArguments(record, state.fettlePath);
    state.store->setJobState(record, LegacyJobStates::inProcess);
    const LegacyJobState result = runArguments(arguments, folder, "console_fettle.txt");
    if (result == LegacyJobStates::closed && record.getMakeScreenShot() &&
        record.getOutputType() != OutputType::Html)
        takeScreenshot(record, folder, arguments);
    state.store->setCommandLine(record, joinArguments(arguments));
    state.store->addTiming(record, {start, state.stopWatch.read()});
    state.store->setJobState(record, result);
    return result == LegacyJobStates::closed;
}

} // namespace OstrandService

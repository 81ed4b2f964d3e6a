#include "framework/JobFolder.h"
#include "framework/PagePolicy.h"
#include "host/OstrandService.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/PageAnswer.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"

namespace OstrandService {

namespace {

constexpr const char* chartLibrary = "https://cdn.jsdelivr.net/npm/chart.js@1.1.1/Chart.min.js";
constexpr const char* chartStyle = "canvas {}";

std::string slice(std::uint32_t value, const char* end) {
    return "{value : " + std::to_string(value) + ",\n" + end + "\n";
}

/// What stands between the tags of the page's own script.
std::string chartScript(std::uint32_t finished, std::uint32_t open, std::uint32_t failed) {
    return "\nvar data_jobstatus = [\n" + slice(finished, "color : '#9ed800'},") +
           slice(open, "color : '#69D2E7'},") + slice(failed, "color : '#F38630'}") +
           "]\nvar myLine0 = new Chart(document.getElementById"
           "('canvas_jobstatus').getContext('2d')).Pie(data_jobstatus);\n";
}

} // namespace

// "finished" includes the errors, the number of jobs is the highest id, and there is no canvas for
// the chart: the list is what a reader sees.
bool TranscoderLegacyServiceProvider::handleStatistics(const Request& request, Reply& reply) {
    const LegacyJobStore& store = *state.store;
    const std::uint32_t finished = store.numJobsFinished();
    const std::uint32_t open = store.numJobsOpen();
    const std::uint32_t failed = store.numJobsFailed();
    const std::string script = chartScript(finished, open, failed);
    reply.header().setParam("Content-Security-Policy",
                            PagePolicy::withScript(chartLibrary, script, chartStyle).c_str());
    answerPage(request, reply, "text/html",
               std::string("<html><header><script src=\"") + chartLibrary +
                   "\"></script><title>Transcoder - Statistics</title>"
                   "<style>" +
                   chartStyle +
                   "</style>"
                   "<meta viewport='initial-scale = 1, user-scalable = no'></meta></header><body>"
                   "<h1>Statistics</h1><h2>Job Status</h2>Number of Jobs: " +
                   std::to_string(store.maxJobId()) + "<ul><li>finished: " +
                   std::to_string(finished) + "</li><li>open: " + std::to_string(open) +
                   "</li><li>errors: " + std::to_string(failed) +
                   "</li></ul><div id=\"container\"></div>\n<script>" + script +
                   "</script></body></html>");
    return true;
}

bool TranscoderLegacyServiceProvider::handleVersion(const Request& request, Reply& reply) {
    answerPage(request, reply, "text/plain", OstrandService::the().version);
    return true;
}

// Kept for links of old: there is nothing to set here.
bool TranscoderLegacyServiceProvider::handleSettings(const Request& request, Reply& reply) {
    answerPage(request, reply, "text/html", "");
    return true;
}

bool TranscoderLegacyServiceProvider::handleChangelog(const Request& request, Reply& reply) {
    answerPage(request, reply, "text/plain", JobFolder::readText("changelog.txt"));
    return true;
}

bool TranscoderLegacyServiceProvider::handleChartScript(const Request& request, Reply& reply) {
    answerPage(request, reply, "text/javascript", JobFolder::readText("Chart.min.js"));
    return true;
}

} // namespace OstrandService

#include "framework/Cors.h"
#include "framework/PagePieces.h"
#include "framework/ServiceJobBase.h"
#include "host/OstrandService.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/render/DappleRenderServiceProvider.h"
#include "providers/render/RequestReport.h"

#include <boost/thread/lock_guard.hpp>

namespace OstrandService {

namespace {

/// A row of the job list. Two columns are constant: the provider keeps neither what a job works on
/// nor when it came.
std::string jobRow(const ServiceJobBase& job) {
    const std::string number = std::to_string(job.id);
    const std::string result = job.resultText.load();
    return "<tr>" + PagePieces::idCell(number, number) +
           PagePieces::titledCell("not set", "not set") + PagePieces::titledCell(result, result) +
           PagePieces::cell(job.stateName()) + PagePieces::cell("0 sec") + PagePieces::cell("") +
           "</tr>";
}

} // namespace

bool DappleRenderServiceProvider::handleFrontPage(const Request& request, Reply& reply) {
    addCorsHeaders(request, reply);
    reply.setCode(200);
    reply.header().setParam("Content-Type", "text/html");
    // The list of the first section and the "<pre>" of the last are left open.
    reply.body() = PagePieces::frontPageOpen("Ostrand Works - DappleRenderer") +
                   PagePieces::versionItem(OstrandService::the().version) +
                   PagePieces::jobListOption() + PagePieces::systemBlock() + "</body></html>";
    return true;
}

bool DappleRenderServiceProvider::listJobsHtml(const Request& request, Reply& reply) {
    reportRequest("list html", request);
    std::string text = PagePieces::jobListHead(numJobs, numJobsFinished, numJobsFailed) +
                       PagePieces::jobTableOpen();
    {
        const boost::lock_guard<boost::mutex> lock(slotMutex);
        for (const Job& job : slotJobs) {
            if (job && job->state != JobState::INVALID)
                text += jobRow(*job);
        }
    }
    reply.setCode(200);
    reply.header().setParam("Content-Type", "text/html");
    reply.body() = text + PagePieces::jobListClose();
    return true;
}

bool DappleRenderServiceProvider::listJobsJson(const Request& request, Reply& reply) {
    reportRequest("list json", request);
    reply.setCode(200);
    return true;
}

} // namespace OstrandService

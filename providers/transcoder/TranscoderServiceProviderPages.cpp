#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/PagePieces.h"
#include "host/OstrandService.h"
#include "platform/config/Base.h"
#include "platform/hub/UrlCoding.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "providers/transcoder/TranscoderServiceProvider.h"

#include <boost/lexical_cast.hpp>
#include <boost/thread/lock_guard.hpp>
#include <sstream>

namespace OstrandService {

namespace {

// This provider keeps no times: the labels stand without values, and the second "<pre>" has no end
// of its own.
constexpr const char* emptyTimings = "command timings : <BR> <pre>\nadded : \n<pre>\n"
                                     "  start processing : \n"
                                     "  done processing  : \n"
                                     "  time waiting     : \n"
                                     "  time processing  : \n"
                                     "  overall time     : \n"
                                     "</pre>\n";

/// The link to a job's statistics, where its tools have left some. It lacks the provider's id, and
/// the result server finds nothing there; pages have always linked so.
std::string statisticsLink(const ServiceTranscoderJob& job, const std::string& cachePath,
                           const std::string& deliveryUrl) {
    const std::string file = "/" + std::to_string(job.id) + "/statistics.html";
    // The disk is asked last: this runs for every job of the table.
    if (job.state != JobState::CLOSED || deliveryUrl.empty() ||
        !JobFolder::exists(cachePath + file))
        return "";
    return "<a href=\"" + deliveryUrl + file + "\">Statistics</a>";
}

} // namespace

bool TranscoderServiceProvider::handleFrontPage(const Request& request, Reply& reply) {
    const std::string accept =
        Config::Base::string2Value(request.header().getParam("Accept", nullptr), "*/*");
    return accept == "application/json" ? frontPageJson(request, reply)
                                        : frontPageHtml(request, reply);
}

bool TranscoderServiceProvider::frontPageHtml(const Request& request, Reply& reply) {
    addCorsHeaders(request, reply);
    reply.setCode(200);
    reply.header().setParam("Content-Type", "text/html");
    // The list of the first section is left open.
    reply.body() = PagePieces::frontPageOpen("Ostrand Works - Transcoder") +
                   PagePieces::versionItem(OstrandService::the().version) +
                   PagePieces::jobListOption() + PagePieces::systemBlock() +
                   "Delivery    : " + getDeliveryUrl() + "\n</pre></body></html>";
    return true;
}

bool TranscoderServiceProvider::frontPageJson(const Request& request, Reply& reply) {
    addCorsHeaders(request, reply);
    reply.setCode(200);
    reply.header().setParam("Content-Type", "application/json");
    std::ostringstream out;
    writeProviderInfo(out, "TranscoderService");
    out << "," << std::endl
        << "    \"Delivery\"    : \"" << getDeliveryUrl() << "\"," << std::endl
        << "    \"NumThreads\"    : " << workerCount << std::endl
        << "  }" << std::endl;
    reply.body() = out.str();
    return true;
}

// The lists are made from this with the table unlocked: of a large one each takes a quarter of a
// second, and submissions would wait for it.
std::vector<TranscoderServiceProvider::TranscoderJob> TranscoderServiceProvider::listedJobs() {
    std::vector<TranscoderJob> listed;
    const boost::lock_guard<boost::mutex> lock(jobListMutex);
    listed.reserve(jobs.size());
    for (const TranscoderJob& job : jobs) {
        if (job && job->state != JobState::INVALID)
            listed.push_back(job);
    }
    return listed;
}

bool TranscoderServiceProvider::listJobsHtml(const Request& /*request*/, Reply& reply) {
    std::string text = PagePieces::jobListHead(numJobs, numJobsFinished, numJobsFailed) +
                       PagePieces::jobTableOpen();
    const std::string url = getDeliveryUrl();
    for (const TranscoderJob& job : listedJobs()) {
        const std::string number = std::to_string(job->id);
        const std::string& uid = job->desc.getUid();
        const std::string result = job->resultText.load();
        text += "<tr>" + PagePieces::idCell(providerId + "/" + number, number);
        text += PagePieces::titledCell(uid, PagePieces::shortened(uid));
        text += PagePieces::titledCell(result, result);
        text += PagePieces::cell(job->stateName());
        text += PagePieces::cell("0 sec");
        text += PagePieces::cell(statisticsLink(*job, cachePath, url)) + "</tr>";
    }
    reply.setCode(200);
    reply.header().setParam("Content-Type", "text/html");
    reply.body() = text + PagePieces::jobListClose();
    return true;
}

bool TranscoderServiceProvider::listJobsJson(const Request& /*request*/, Reply& reply) {
    const std::string uriOpening = "   \"uri\" : \"" + getDeliveryUrl() + "/" + providerId + "/";
    std::string text = "{\n \"numJobs\" : " + std::to_string(numJobs) +
                       ",\n \"numJobsFinished\" : " + std::to_string(numJobsFinished) +
                       ",\n \"numJobsFailed\" : " + std::to_string(numJobsFailed) +
                       ",\n \"jobs\": {\n";
    bool any = false;
    for (const TranscoderJob& job : listedJobs()) {
        const std::string number = std::to_string(job->id);
        text += any ? ",\n" : "";
        text += "  \"job" + number + "\" : {\n";
        text += uriOpening + number + "\",\n";
        text += "   \"resource\" : \"" + url_encode(job->desc.getUid()) + "\",\n";
        text += "   \"status\" : \"" + job->stateName() + "\"\n  }";
        any = true;
    }
    text += any ? "\n }\n}" : " }\n}";
    reply.setCode(200);
    reply.header().setParam("Content-Type", "application/json");
    reply.body() = text;
    return true;
}

bool TranscoderServiceProvider::getJob(const Request& request, Reply& reply) {
    reply.setCode(400);
    const std::string::size_type slash = request.uri.rfind('/');
    if (slash == std::string::npos)
        return true;
    const std::string idText = request.uri.substr(slash + 1);
    std::uint64_t number = 0;
    if (!boost::conversion::try_lexical_convert(idText, number) || number == 0)
        return true;
    std::string text;
    {
        const boost::lock_guard<boost::mutex> lock(jobListMutex);
        if (number >= jobs.size() || !jobs[number])
            return true;
        text = "Job: " + std::to_string(number) + "/" + std::to_string(jobs.size() - 1) +
               "<ul><li>Resource: " + jobs[number]->desc.getUid() + "</li></ul>" + emptyTimings;
    }
    // The console is looked up by the text of the request: "+7" shows job 7 without it.
    text += PagePieces::consoleBlock(cachePath + "/" + idText);
    reply.setCode(200);
    reply.header().setParam("Content-Type", "text/html");
    reply.body() = text;
    return true;
}

} // namespace OstrandService

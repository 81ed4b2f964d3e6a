#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/PagePieces.h"
#include "host/OstrandService.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/UrlCoding.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/PageAnswer.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"

#include <boost/lexical_cast.hpp>
#include <sstream>

namespace OstrandService {

namespace {

constexpr double secondsPerMilli = 0.001;

/// Milliseconds as seconds, in the stream's six significant digits.
std::string seconds(double millis) {
    std::ostringstream out;
    out << millis * secondsPerMilli;
    return out.str();
}

/// The test looks for a folder named like the uid, where the link names the id: it shows only for
/// those who keep such folders.
std::string statisticsLink(const JobRecord& record, const std::string& uid,
                           const std::string& number, const LegacyState& state,
                           const std::string& delivery) {
    if (record.state != LegacyJobStates::closed || delivery.empty() ||
        !JobFolder::exists(state.cachePath + "/" + uid + "/statistics.html"))
        return "";
    return "<a href=\"" + delivery + "/" + number + "/statistics.html\">Statistics</a>";
}

std::string timingLines(const JobRecord& record) {
    std::string text;
    for (std::size_t i = 0; i < record.timings.size(); ++i) {
        const double start = record.timings[i].first;
        const double end = record.timings[i].second;
        text += "[" + std::to_string(i) + "]\n";
        text += "  start processing : " + seconds(start) + "\n";
        text += "  done processing  : " + seconds(end) + "\n";
        text += "  time waiting     : " + seconds(start - record.addedTime) + "\n";
        text += "  time processing  : " + seconds(end - start) + "\n";
        text += "  overall time     : " + seconds(end - record.addedTime) + "\n";
    }
    return text;
}

/// The number behind "of" is one less than the highest id; pages have always shown that.
std::string details(const JobRecord& record, std::uint64_t id, const std::string& uid,
                    const LegacyState& state) {
    return "Job: " + std::to_string(id) + "/" + std::to_string(state.store->maxJobId() - 1) +
           "<ul><li>Resource: " + uid + "</li></ul>command timings : <BR> <pre>\n" +
           "added : " + seconds(record.addedTime) + "\n" + timingLines(record) + "</pre>\n" +
           PagePieces::consoleBlock(state.cachePath + "/" + std::to_string(id));
}

} // namespace

bool TranscoderLegacyServiceProvider::deleteJob(const Request& request, Reply& reply) {
    addCorsHeaders(request, reply);
    // Other methods do nothing and are told "ok" all the same.
    if (request.method == "GET") {
        reply.setCode(400);
        if (!request.query.hasParam("id")) {
            MessageLog::the()->log("DELETE job: failed, no ID supplied");
            return true;
        }
        const std::string text = request.query.getParam("id", "");
        std::uint32_t id = 0;
        if (!boost::conversion::try_lexical_convert(text, id)) {
            reply.body() = "Invalid ID: " + text;
            MessageLog::the()->log("DELETE job: failed, invalid id: " + text);
            return true;
        }
        if (!state.store->requestDelete(id)) {
            reply.body() = "Not possible to delete that job (yet?).";
            MessageLog::the()->log("DELETE job: failed, not possible to delete that job (yet?)");
            return true;
        }
        MessageLog::the()->log("DELETE job: success, id: " + std::to_string(id));
    }
    reply.header().setParam("Content-Type", "text/plain");
    reply.setCode(202);
    reply.body() = "ok";
    return true;
}

bool TranscoderLegacyServiceProvider::getJob(const Request& request, Reply& reply) {
    const std::string rest = request.uri.substr(std::string("/job/").size());
    const std::string::size_type slash = rest.find('/');
    const std::string idText = rest.substr(0, slash);
    const std::string sub = slash == std::string::npos ? "" : rest.substr(slash);
    std::uint64_t id = 0;
    if (!boost::conversion::try_lexical_convert(idText, id)) {
        id = 0;
        MessageLog::the()->log("DETAILS job: failed, no valid ID supplied");
    }
    if (id == 0 || id > state.store->maxJobId()) {
        const bool low = id == 0;
        MessageLog::the()->log(low ? "DETAILS job: ID too low" : "DETAILS job: ID too high");
        answerPage(request, reply, "text/html",
                   (low ? "Job id too low: " : "Job id too high: ") + std::to_string(id));
        reply.setCode(404);
        return true;
    }
    const auto number = static_cast<std::uint32_t>(id);
    const JobRecord record = state.store->getJobRecord(number);
    // "/path" and "/result" give the id as the client wrote it.
    const std::string uri = state.getDeliveryService() + "/" + idText;
    std::string body;
    if (sub.empty())
        body = details(record, id, state.store->getKey(number), state);
    else if (sub == "/status")
        body = legacyStateName(record.state);
    else if (sub == "/path")
        body = uri;
    else if (sub == "/result")
        body = uri + "/" + outputIndexName(record);
    answerPage(request, reply, "text/html", body);
    return true;
}

bool TranscoderLegacyServiceProvider::listJobs(const Request& request, Reply& reply) {
    const LegacyJobStore& store = *state.store;
    const std::string delivery = state.getDeliveryService();
    std::string text = PagePieces::jobListOpen() +
                       PagePieces::countLine("Number of Jobs: ", store.numJobsTotal()) +
                       PagePieces::countLine("Number of finished Jobs: ", store.numJobsFinished()) +
                       "<br>" + PagePieces::jobTableOpen();
    const std::uint32_t last = store.maxJobId();
    for (std::uint32_t id = 1; id <= last; ++id) {
        const std::string uid = store.getKey(id);
        const JobRecord record = store.getJobRecord(id);
        if (record.state == LegacyJobStates::invalid)
            continue;
        const std::string number = std::to_string(id);
        text += "<tr>" + PagePieces::idCell(number, number);
        text += PagePieces::titledCell(uid, PagePieces::shortened(uid));
        text += PagePieces::titledCell(record.commandLine, record.commandLine);
        text += PagePieces::cell(legacyStateName(record.state));
        text += PagePieces::cell(seconds(record.addedTime) + " sec");
        text += PagePieces::cell(statisticsLink(record, uid, number, state, delivery)) + "</tr>";
    }
    answerPage(request, reply, "text/html", text + PagePieces::jobListClose());
    return true;
}

bool TranscoderLegacyServiceProvider::listJobsHtml(const Request& request, Reply& reply) {
    return listJobs(request, reply);
}

bool TranscoderLegacyServiceProvider::listJobsJson(const Request& request, Reply& reply) {
    const LegacyJobStore& store = *state.store;
    std::string text = "{\n\"numJobs\" : " + std::to_string(store.numJobsTotal()) +
                       ",\n\"numJobsFinished\" : " + std::to_string(store.numJobsFinished()) +
                       ",\n\"jobs\": {\n";
    const std::uint32_t last = store.maxJobId();
    for (std::uint32_t id = 1; id <= last; ++id) {
        const std::string uid = store.getKey(id);
        text += "  \"job" + std::to_string(id) + "\" : {\n";
        text += "   \"resource\" : \"" + url_encode(uid) + "\",\n";
        text += "   \"status\" : \"" + legacyStateName(store.getJobState(uid)) + "\"\n";
        text += id == last ? "  }\n" : "  },\n";
    }
    answerPage(request, reply, "application/json", text + "}\n}");
    return true;
}

bool TranscoderLegacyServiceProvider::handleListCached(const Request& request, Reply& reply) {
    std::string text = "[";
    for (const std::string& key : state.store->getKeys())
        text += (text.size() == 1 ? "\"" : ",\"") + key + "\"";
    answerPage(request, reply, "text/json", text + "]\n");
    return true;
}

bool TranscoderLegacyServiceProvider::handleListOpen(const Request& request, Reply& reply) {
    answerPage(request, reply, "text/plain", std::to_string(state.store->numJobsOpen()));
    return true;
}

bool TranscoderLegacyServiceProvider::handleFrontPage(const Request& request, Reply& reply) {
    MessageLog::the()->log("frontpage accessed");
    answerPage(request, reply, "text/html",
               PagePieces::frontPageOpen("Ostrand Works - Transcoder") +
                   PagePieces::versionItem(OstrandService::the().version) +
                   "<li>Worker threads: " + std::to_string(state.workerCount) +
                   "</li></ul>"
                   "<h2>Options</h2><ul><li><a href=\"./job/list\">Job List</a></li>"
                   "<li><a href=\"./statistics\">Statistics</a></li></ul>" +
                   PagePieces::systemBlock() + "Delivery    : " + state.getDeliveryService() +
                   "\n</pre></body></html>");
    return true;
}

} // namespace OstrandService

#include "providers/legacy/TranscoderLegacyServiceProvider.h"

#include "framework/Cors.h"
#include "framework/JobReply.h"
#include "framework/StateList.h"
#include "host/ServiceProviderRegistry.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/UrlCoding.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/legacy/LegacyJobStore.h"

#include <boost/lexical_cast.hpp>
#include <optional>

namespace OstrandService {

namespace {

ServiceProvider* createTranscoderLegacy() {
    return new TranscoderLegacyServiceProvider;
}

const ServiceProviderRegistration registration("TranscoderLegacyService", &createTranscoderLegacy);

/// The form of the answer is the incoming description's, the name of the file the stored job's.
void writeReply(Portico::ProtocolHTTP::Reply& reply, const LegacyState& state,
                const JobRecord& incoming, std::uint32_t id) {
    const std::string number = std::to_string(id);
    const std::string uri = state.getDeliveryService() + "/" + number;
    const std::string file = uri + "/" + outputIndexName(state.store->getJobRecord(id));
    reply.header().setParam("Content-Type", "text/html");
    reply.setCode(202);
    switch (incoming.replyType) {
    case ReplyType::Redirect:
        redirectTo(reply, file);
        break;
    case ReplyType::Uri:
        reply.body() = uri;
        break;
    case ReplyType::File:
        reply.body() = file;
        break;
    default:
        reply.body() = number + "@" + state.serviceId();
    }
}

} // namespace

TranscoderLegacyServiceProvider::TranscoderLegacyServiceProvider()
    : ServiceProvider("./transcoder/log", "./transcoder/cache"),
      ownedState(std::make_unique<LegacyState>()), state(*ownedState) {
    deliveryServer.bodyLimit = 2ull * 1024 * 1024 * 1024;
}

bool TranscoderLegacyServiceProvider::addJob(const Request& /*request*/,
                                             const picojson::value& /*job*/, Reply& /*reply*/) {
    return false;
}

bool TranscoderLegacyServiceProvider::handleJobRequest(const Request& request, Reply& reply) {
    if (request.method == "GET")
        return listJobs(request, reply);
    if (request.method == "POST")
        return handleJobAdd(request, reply);
    reply.setCode(400);
    return true;
}

picojson::value TranscoderLegacyServiceProvider::jobTextFromForm(const Config::ParamBag& query,
                                                                 bool urlDecode) {
    picojson::object text;
    if (!query.hasParam("resource"))
        return picojson::value(text);
    const std::string resource = query.getParam("resource", "");
    text["resource"] = picojson::value(urlDecode ? url_decode(resource) : resource);
    for (const char* key : {"ops", "options", "format", "reply"}) {
        if (query.hasParam(key))
            text[key] = picojson::value(std::string(query.getParam(key, "")));
    }
    if (std::string(query.getParam("redirect", "")) == "true")
        text["redirect"] = picojson::value(true);
    return picojson::value(text);
}

bool TranscoderLegacyServiceProvider::handleJobAdd(const Request& request, Reply& reply) {
    std::optional<std::string> text;
    if (request.method == "GET")
        text = jobTextFromForm(request.query, state.urlDecode).serialize();
    else if (request.method == "POST")
        text = request.body();
    JobRecord record(state.uploadPath.string());
    addCorsHeaders(request, reply);
    if (!text || !record.parseJobText(*text)) {
        reply.setCode(400);
        MessageLog::the()->log("ADD job: failed, bad request");
        return true;
    }
    writeReply(reply, state, record, state.store->submitJob(record, *text));
    return true;
}

bool TranscoderLegacyServiceProvider::handleUpdateState(const Request& request, Reply& reply) {
    reply.setCode(400);
    picojson::value value;
    std::string error;
    if (!OstrandHub::parseJsonPrefix(request.body(), value, error))
        return false;
    const auto uris = stateQuestions(value);
    if (!uris)
        return true;
    StateAnswers answers;
    for (const std::string& uri : *uris) {
        const std::string::size_type slash = uri.rfind('/');
        if (slash == std::string::npos)
            continue;
        // A text that is no number goes out as an exception: the whole request is refused.
        const auto id = boost::lexical_cast<std::int32_t>(uri.substr(slash + 1));
        switch (state.store->getJobRecord(static_cast<std::uint32_t>(id)).state) {
        case LegacyJobStates::open:
        case LegacyJobStates::inProcess:
            answers.add(202, uri);
            break;
        case LegacyJobStates::closed:
        case LegacyJobStates::terminated:
            answers.add(200, uri);
            break;
        default:
            // Failed and deleted jobs are left out.
            break;
        }
    }
    reply.setCode(200);
    reply.body() = answers.text();
    addCorsHeaders(request, reply);
    return true;
}

} // namespace OstrandService

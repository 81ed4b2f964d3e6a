#include "providers/transcoder/TranscoderServiceProvider.h"

#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/StateList.h"
#include "host/ServiceProviderRegistry.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/kestrel/CrashPoint.h"
#include "platform/portico/ProtocolHTTP.h"
#include "platform/portico/URL.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "providers/transcoder/Transition.h"

#include <boost/lexical_cast.hpp>
#include <boost/pointer_cast.hpp>
#include <boost/thread/lock_guard.hpp>
#include <optional>

namespace OstrandService {

namespace {

ServiceProvider* createTranscoder() {
    return new TranscoderServiceProvider;
}

const ServiceProviderRegistration registration("TranscoderService", &createTranscoder);

bool mayRunAgain(JobState state) {
    return state == JobState::DELETED || state == JobState::CANCELED || state == JobState::ERROR;
}

} // namespace

TranscoderServiceProvider::TranscoderServiceProvider()
    : ServiceProvider("./transcoder/log", "./transcoder/cache") {
    jobs.emplace_back();
    // A result may be as large as the tools make it, and uploads have the same bound.
    deliveryServer.bodyLimit = 2ull * 1024 * 1024 * 1024;
}

void TranscoderServiceProvider::setupLogging() {
    MessageLog::setLogPath(logPath);
}

bool TranscoderServiceProvider::addJob(const Request& request, const picojson::value& value,
                                       Reply& reply) {
    const TranscoderJob incoming = ServiceTranscoderJob::create(value, providerId);
    if (!incoming) {
        reply.setCode(400);
        return true;
    }
    TranscoderJob job = incoming;
    {
        const Transition transition(transitions);
        const bool isNew = insertOrFind(job);
        if (!isNew)
            job->awaitAcceptance();
        AcceptanceGuard acceptance(*job, isNew);
        // Only the wish to run again is the new request's; description, commands and form of the
        // answer stay those of the job that was there.
        if (isNew || mayRunAgain(job->state) || incoming->desc.rerun) {
            // Also for a job that lost its folder, or never got one on a full disk: what is
            // answered must be there after a restart.
            if (isNew || !JobFolder::exists(job->workDir() + "/.meta"))
                job->prepare(cachePath);
            queueJob(job, request.header().getParam("Cookie", ""));
        }
        acceptance.succeeded();
    }
    job->writeJobReply(reply, replyBase(request, job));
    Kestrel::crashPoint("answer made");
    return true;
}

// True for a job that is new to the table. `job` is then in it, else it becomes the one that was
// there. An index entry of 0, as a folder "0" leaves it, means "not there", and it is the job in
// place 0 that gets a new id.
bool TranscoderServiceProvider::insertOrFind(TranscoderJob& job) {
    const boost::lock_guard<boost::mutex> lock(jobListMutex);
    const auto known = jobIndex.find(job->desc.getUid());
    if (known != jobIndex.end()) {
        job = jobs[known->second];
        if (known->second != 0)
            return false;
    }
    job->id = static_cast<std::uint32_t>(jobs.size());
    jobs.push_back(job);
    jobIndex[job->desc.getUid()] = job->id;
    job->beginAcceptance();
    return true;
}

// When this returns the folder tells of a job that waits: a restart would run it.
void TranscoderServiceProvider::queueJob(const TranscoderJob& job, const std::string& cookie) {
    job->writeJobId();
    job->setCookies(cookie);
    if (!job->openFolder())
        MessageLog::the()->log("job " + std::to_string(job->id) +
                               " is not run: its folder cannot be written");
    job->resultText = "Not Run Yet";
    ++numJobs;
    const boost::lock_guard<boost::mutex> accepting(jobsMutex);
    {
        const boost::lock_guard<boost::mutex> lock(jobQueue.mutex);
        jobQueue.pushBack(job);
    }
    jobQueue.notEmpty.notify_one();
    Kestrel::crashPoint("queued");
}

std::string TranscoderServiceProvider::replyBase(const Request& request,
                                                 const TranscoderJob& job) const {
    std::string base = getDeliveryUrl();
    if (!replyOrigin)
        return base;
    const Portico::URL origin(std::string("http://") + request.header().getParam("HubHost", ""));
    const Portico::URL delivery(base);
    std::string own =
        delivery.getScheme() + "://" + origin.getHost() + ":" + std::to_string(delivery.getPort());
    job->setDeliveryHost(own);
    return own;
}

bool TranscoderServiceProvider::updateJobStates(const Request& request, Reply& reply) {
    picojson::value value;
    std::optional<std::vector<std::string>> uris;
    if (OstrandHub::parseJson(request.body(), value))
        uris = stateQuestions(value);
    if (!uris) {
        reply.setCode(400);
        return true;
    }
    StateAnswers answers;
    for (const std::string& uri : *uris) {
        if (const int code = stateCode(uri))
            answers.add(code, uri);
    }
    reply.setCode(200);
    reply.body() = answers.text();
    reply.header().setParam("Content-Type", "application/json");
    addCorsHeaders(request, reply);
    return true;
}

// The code that a job's URI, ".../<providerId>/<id>", is answered with; 0 where the URI is none of
// this provider's jobs.
int TranscoderServiceProvider::stateCode(const std::string& uri) {
    const std::string::size_type last = uri.rfind('/');
    if (last == std::string::npos || last == 0)
        return 0;
    const std::string::size_type previous = uri.rfind('/', last - 1);
    if (previous == std::string::npos ||
        uri.compare(previous + 1, last - previous - 1, providerId) != 0)
        return 0;
    const auto number = boost::lexical_cast<std::int32_t>(uri.substr(last + 1));
    const auto index = static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
    const boost::lock_guard<boost::mutex> lock(jobListMutex);
    if (index >= jobs.size() || !jobs[index])
        return 0;
    switch (jobs[index]->state) {
    case JobState::OPEN:
    case JobState::IN_PROCESS:
        return 202;
    case JobState::CLOSED:
    case JobState::TERMINATED:
        return 200;
    default:
        return 404;
    }
}

bool TranscoderServiceProvider::deleteJob(const Request& /*request*/, Reply& reply) {
    // A job stays until the cache is cleared; the request is answered and does nothing.
    reply.setCode(200);
    return true;
}

void TranscoderServiceProvider::jobFinished(boost::shared_ptr<ServiceJobBase>& job) {
    if (!job)
        return;
    const Transition transition(transitions);
    ServiceProvider::jobFinished(job);
    const auto own = boost::dynamic_pointer_cast<ServiceTranscoderJob>(job);
    if (own && !own->clearPartial())
        unsettled.add(own);
}

void TranscoderServiceProvider::update() {
    ServiceProvider::update();
    unsettled.settle();
}

void TranscoderServiceProvider::jobRemoved(boost::shared_ptr<ServiceJobBase>& /*job*/) {}

} // namespace OstrandService

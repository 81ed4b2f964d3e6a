#include "providers/transcoder/ServiceTranscoderJob.h"

#include "framework/JobFolder.h"
#include "framework/JobReply.h"
#include "platform/kestrel/CrashPoint.h"
#include "platform/portico/ProtocolHTTP.h"

#include <boost/algorithm/string.hpp>
#include <boost/filesystem.hpp>
#include <vector>

namespace OstrandService {

namespace {

bool isWhitelisted(const std::string& token) {
    for (const std::string& entry : TranscoderJobDesc::cookie_whitelist) {
        if (token.compare(0, entry.size(), entry) == 0)
            return true;
    }
    return false;
}

} // namespace

ServiceTranscoderJob::ServiceTranscoderJob(const std::string& providerId)
    : ServiceJob<TranscoderJobDesc>(providerId, "") {}

void ServiceTranscoderJob::destroy(ServiceTranscoderJob* job) {
    delete job;
}

boost::shared_ptr<ServiceTranscoderJob>
ServiceTranscoderJob::create(const picojson::value& v, const std::string& providerId) {
    boost::shared_ptr<ServiceTranscoderJob> job(new ServiceTranscoderJob(providerId),
                                                &ServiceTranscoderJob::destroy);
    job->desc.parse(v);
    job->metaText = v.serialize();
    if (!job->desc.valid)
        job.reset();
    return job;
}

void ServiceTranscoderJob::setState(JobState newState) {
    const std::lock_guard<std::mutex> lock(stateMutex);
    // First on disk: who is told of a state finds it there, and so does a restart.
    isSaved = saveLocked(newState);
    ServiceJobBase::setState(newState);
}

/// A folder in the place of the file is no trouble of the disk that goes by: nothing waits for it.
bool ServiceTranscoderJob::saveLocked(JobState saved) const {
    return writeStatus(saved) || JobFolder::isFolder(workDir() + "/.status");
}

void ServiceTranscoderJob::getCommands(Commands& commands) {
    if (desc.JobKind != TranscoderJobDesc::commandBatch)
        return;
    // An empty line fails as a tool does that finds no folder to start in.
    for (const TranscoderJobDesc::Command& command : desc.commands)
        commands.push_back({isStored ? command.line : std::string()});
}

void ServiceTranscoderJob::getEnvironment(EnvironmentList& env) {
    ServiceJob<TranscoderJobDesc>::getEnvironment(env);
    const std::lock_guard<std::mutex> lock(textMutex);
    if (!cookieHeader.empty())
        env.emplace_back(cookieVariable, cookieHeader);
    if (!deliveryHost.empty())
        env.emplace_back(deliveryHostVariable, deliveryHost);
}

void ServiceTranscoderJob::prepare(const std::string& basePath) {
    ServiceJob<TranscoderJobDesc>::prepare(basePath);
    const std::string path = workDir();
    for (const char* name : {"/binGeo", "/imgGeo", "/popGeo", "/src", "/struct", "/acc"}) {
        boost::system::error_code error;
        boost::filesystem::create_directory(path + name, error);
        if (error)
            return;
        Kestrel::crashPoint("part of the folder made");
    }
    if (!desc.cookies.empty())
        JobFolder::writeCookies(path, desc.cookies);
}

void ServiceTranscoderJob::writeJobId() {
    JobFolder::writeJobId(workDir(), id, sourceText);
}

bool ServiceTranscoderJob::openFolder() {
    const bool isMarked = markPartial();
    setState(JobState::OPEN);
    const bool isDescribed = JobFolder::exists(workDir() + "/.meta");
    const std::lock_guard<std::mutex> lock(stateMutex);
    isStored = isMarked && isSaved && isDescribed;
    return isStored;
}

bool ServiceTranscoderJob::markPartial() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    ++unfinishedRuns;
    return JobFolder::markPartial(workDir());
}

void ServiceTranscoderJob::expectRun() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    ++unfinishedRuns;
}

bool ServiceTranscoderJob::clearPartial() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    if (unfinishedRuns > 0)
        --unfinishedRuns;
    return settleLocked();
}

bool ServiceTranscoderJob::settle() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    isSaved = isSaved || saveLocked(state);
    return settleLocked();
}

/// A run that is still to come needs the marker and settles all at its end. Who finds the marker
/// gone finds the state on disk; in a folder that has gone there is neither.
bool ServiceTranscoderJob::settleLocked() {
    if (unfinishedRuns > 0)
        return true;
    return (isSaved && JobFolder::clearPartial(workDir())) || !JobFolder::mayExist(workDir());
}

// The whitelist is compared with the beginning of the whole "name=value", and what is kept is put
// together with nothing in between: that form is what tools are given.
void ServiceTranscoderJob::setCookies(const std::string& header) {
    if (header.empty())
        return;
    std::vector<std::string> tokens;
    boost::split(tokens, header, [](char c) { return c == ';'; });
    std::string kept;
    for (std::string& token : tokens) {
        boost::trim(token);
        if (isWhitelisted(token))
            kept += token;
    }
    const std::lock_guard<std::mutex> lock(textMutex);
    cookieHeader = kept;
}

void ServiceTranscoderJob::setDeliveryHost(const std::string& host) {
    const std::lock_guard<std::mutex> lock(textMutex);
    deliveryHost = host;
}

std::string ServiceTranscoderJob::resultFileName() const {
    return "index." + TranscoderJobDesc::format(desc.getOutputType()).extension;
}

void ServiceTranscoderJob::writeJobReply(Portico::ProtocolHTTP::Reply& reply,
                                         const std::string& base) const {
    const std::string number = std::to_string(id);
    const std::string jobUri = base + "/" + sourceText + "/" + number;
    const bool hasResultFile = desc.JobKind == TranscoderJobDesc::toolJob;
    // Also where the body is a bare URI.
    reply.header().setParam("Content-Type", "text/html");
    reply.setCode(202);
    if (desc.replyType == ReplyType::Redirect && hasResultFile) {
        redirectTo(reply, jobUri + "/" + resultFileName());
    } else if (desc.replyType == ReplyType::Uri || desc.replyType == ReplyType::Origin) {
        reply.body() = jobUri;
    } else if (desc.replyType == ReplyType::File && hasResultFile) {
        reply.body() = jobUri + "/" + resultFileName();
    } else {
        reply.body() = number + "@" + sourceText;
    }
}

void ServiceTranscoderJob::beginAcceptance() {
    const std::lock_guard<std::mutex> lock(acceptanceMutex);
    accepted = false;
}

void ServiceTranscoderJob::endAcceptance() {
    const std::lock_guard<std::mutex> lock(acceptanceMutex);
    accepted = true;
    acceptanceEnded.notify_all();
}

void ServiceTranscoderJob::awaitAcceptance() {
    std::unique_lock<std::mutex> lock(acceptanceMutex);
    acceptanceEnded.wait(lock, [this] { return accepted; });
}

} // namespace OstrandService

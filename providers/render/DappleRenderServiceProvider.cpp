#include "providers/render/DappleRenderServiceProvider.h"

#include "host/OstrandService.h"
#include "host/ServiceProviderRegistry.h"
#include "platform/hub/HubFiles.h"
#include "platform/hub/Json.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/render/RequestReport.h"
#include "providers/render/ServiceDappleRenderJob.h"

#include <boost/filesystem.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/thread/lock_guard.hpp>
#include <cstdio>

namespace OstrandService {

namespace {

ServiceProvider* createRender() {
    return new DappleRenderServiceProvider;
}

const ServiceProviderRegistration registration("DappleRenderService", &createRender);

/// The address of something on this host, on a line of its own.
std::string addressLine(std::int32_t port, const std::string& path) {
    return "http://" + OstrandService::the().getHost() + ":" + std::to_string(port) + path + "\n";
}

} // namespace

DappleRenderServiceProvider::DappleRenderServiceProvider()
    : ServiceProvider("./dapple/log", "./dapple/cache") {}

// A failure of the base does not end it: whoever looks for the reason learns of the configuration
// file too.
bool DappleRenderServiceProvider::init(const boost::program_options::variables_map& vm) {
    const bool initialised = ServiceProvider::init(vm);
    const std::string path = OstrandHub::getHubDataPath() + "/config/dappleconfig.json";
    std::fprintf(stderr, "init with config file : %s\n", path.c_str());
    boost::system::error_code error;
    const boost::filesystem::file_type type = boost::filesystem::status(path, error).type();
    if (type == boost::filesystem::file_not_found || type == boost::filesystem::status_error) {
        std::fprintf(stderr, "dapple config file not found\n");
        return false;
    }
    std::string text;
    picojson::value config;
    if (!OstrandHub::getFileContents(path.c_str(), text) || !OstrandHub::parseJson(text, config))
        return false;
    slots = readRendererSlots(config);
    slotJobs.resize(slots.size());
    return initialised;
}

void DappleRenderServiceProvider::start() {
    workerThreads.resize(slots.size(), nullptr);
    ServiceProvider::start();
    dumpSlots();
}

void DappleRenderServiceProvider::dumpSlots() const {
    std::fprintf(stderr, "num renderer slots : %d\n", static_cast<int>(slots.size()));
    int index = 0;
    for (const RendererSlot& slot : slots)
        slot.dump(index++);
}

// The stop is the base's alone. The host destroys the base part, so what this class holds on the
// heap goes here.
void DappleRenderServiceProvider::shutdown() {
    ServiceProvider::shutdown();
    std::vector<Job>().swap(slotJobs);
    std::vector<RendererSlot>().swap(slots);
}

bool DappleRenderServiceProvider::addJob(const Request& request, const picojson::value& jsonValue,
                                         Reply& reply) {
    reportRequest("add", request);
    const RenderJob job = ServiceDappleRenderJob::createJob(jsonValue);
    if (!job) {
        reply.setCode(400);
        return true;
    }
    if (!acquireSlot(job)) {
        reply.setCode(503);
        return true;
    }
    reply.header().setParam("Content-Type", "text/plain");
    reply.setCode(200);
    reply.body() = addressLine(OstrandService::the().port, "/job/" + std::to_string(job->id));

    const boost::lock_guard<boost::mutex> accepting(jobsMutex);
    {
        const boost::lock_guard<boost::mutex> lock(jobQueue.mutex);
        jobQueue.pushBack(job);
    }
    jobQueue.notEmpty.notify_one();
    // A worker may have had the whole job meanwhile; the count then wraps for a moment.
    ++numJobs;
    return true;
}

bool DappleRenderServiceProvider::acquireSlot(const RenderJob& job) {
    unsigned found = 0;
    const bool taken = takeSlot(job, found);
    // One for each free slot of the class that was looked at, whether it fitted or not.
    for (; found != 0; --found)
        std::fprintf(stderr, "found slot\n");
    return taken;
}

// The first free slot that fits, in the order of the configuration. The job's folder is made with
// the table locked: the former job of the slot had the same one. `found` counts the free slots of
// the class.
bool DappleRenderServiceProvider::takeSlot(const RenderJob& job, unsigned& found) {
    const std::string wantedClass = job->desc.getClass();
    const std::string wantedOutput = job->desc.getOutput();
    const boost::lock_guard<boost::mutex> lock(slotMutex);
    for (std::size_t index = 0; index < slots.size(); ++index) {
        const RendererSlot& slot = slots[index];
        if (slotJobs[index] || slot.className != wantedClass)
            continue;
        ++found;
        if (!slot.delivers(wantedOutput))
            continue;
        // Whatever fails below, the entry never holds a job without its slot.
        job->slot = &slot;
        slotJobs[index] = job;
        job->id = static_cast<std::uint32_t>(index);
        job->prepare(cachePath);
        job->setState(JobState::OPEN);
        job->resultText = "Not yet run";
        return true;
    }
    return false;
}

// The path has the components "/", "job", the id and the detail; what follows is not looked at. A
// slash at the end of a path makes a last component ".".
DappleRenderServiceProvider::NamedJob DappleRenderServiceProvider::findJob(const std::string& uri) {
    const boost::filesystem::path path(uri);
    auto component = path.begin();
    for (int i = 0; i < 2 && component != path.end(); ++i, ++component)
        std::fprintf(stderr, ":%s\n", component->c_str());
    NamedJob named;
    if (component == path.end() || component->empty() || *component == ".")
        return named;
    const std::string idText = component->string();
    named.id = boost::lexical_cast<std::uint32_t>(idText);
    {
        const boost::lock_guard<boost::mutex> lock(slotMutex);
        if (named.id < slotJobs.size())
            named.job = slotJobs[named.id];
    }
    if (!named.job)
        return named;
    std::fprintf(stderr, ":%s | %d\n", idText.c_str(), static_cast<int>(named.id));
    if (++component != path.end())
        named.detail = component->string();
    return named;
}

bool DappleRenderServiceProvider::deleteJob(const Request& request, Reply& reply) {
    reportRequest("delete", request);
    const NamedJob named = findJob(request.uri);
    // A job that has no application running is left as it is; the answer is the same.
    if (named.job)
        named.job->kill();
    reply.setCode(named.job ? 200 : 400);
    return true;
}

bool DappleRenderServiceProvider::getJob(const Request& request, Reply& reply) {
    reportRequest("details", request);
    const NamedJob named = findJob(request.uri);
    if (!named.job) {
        reply.setCode(400);
        return true;
    }
    std::fprintf(stderr, "detail : %s\n", named.detail.c_str());
    if (named.detail == "dapple") {
        reply.body() = addressLine(slots[named.id].port, "");
        reply.setCode(200);
    } else {
        reply.setCode(named.detail == "all" ? 200 : 400);
    }
    return true;
}

void DappleRenderServiceProvider::jobFinished(boost::shared_ptr<ServiceJobBase>& job) {
    if (!job)
        return;
    ServiceProvider::jobFinished(job);
}

// The job was counted when its application ended and is counted once more here: the counters have
// always held a removed job twice.
void DappleRenderServiceProvider::jobRemoved(boost::shared_ptr<ServiceJobBase>& job) {
    if (!job)
        return;
    ServiceProvider::jobFinished(job);
    const std::uint32_t id = job->id;
    std::fprintf(stderr, "clear job %d\n", static_cast<int>(id));
    const boost::lock_guard<boost::mutex> lock(slotMutex);
    if (id < slotJobs.size())
        slotJobs[id].reset();
}

} // namespace OstrandService

#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/JsonNumbers.h"
#include "framework/OptionValues.h"
#include "host/OstrandService.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/kestrel/SysInfo.h"
#include "platform/kestrel/Thread.h"
#include "platform/portico/InetAddress.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/legacy/JobProcThread.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"

#include <cstddef>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <system_error>
#include <utility>

namespace OstrandService {

bool TranscoderLegacyServiceProvider::handleReconfig(const Request& request, Reply& reply) {
    // Whatever ends early is answered with the code of a new reply, 200, and no more.
    addCorsHeaders(request, reply);
    picojson::value value;
    std::string error;
    if (request.method != "POST" || !OstrandHub::parseJsonPrefix(request.body(), value, error) ||
        !value.is<picojson::object>())
        return true;
    const picojson::object& config = value.get<picojson::object>();
    const auto service = config.find("service");
    // The hub knows this provider by the transcoder's name.
    if (service != config.end() && service->second.to_str() != "TranscoderService") {
        std::fprintf(stderr, "looking for wrong service : %s\n", service->second.to_str().c_str());
        return true;
    }
    reconfigureJobs(value);
    if (config.count("deliveryPort") != 0 || config.count("deliveryProto") != 0)
        reconfigureDelivery(config);
    reply.setCode(200);
    return true;
}

// One request at a time: a second one would end the same threads and remove the same folders.
void TranscoderLegacyServiceProvider::reconfigureJobs(const picojson::value& config) {
    const picojson::value& threads = config.get("threads");
    const picojson::value& clear = config.get("clearCache");
    const bool clears = clear.is<bool>() && clear.get<bool>();
    if (!threads.is<double>() && !clears)
        return;
    const std::lock_guard<std::mutex> lock(state.workersMutex);
    if (threads.is<double>())
        reconfigureThreads(cutToInt(threads.get<double>()));
    if (clears)
        clearCache();
}

void TranscoderLegacyServiceProvider::reconfigureDelivery(const picojson::object& config) {
    const picojson::value settings(config);
    const picojson::value& proto = settings.get("deliveryProto");
    const picojson::value& local = settings.get("deliveryLocalhost");
    const picojson::value& port = settings.get("deliveryPort");
    std::string uri = (proto.is<std::string>() ? proto.get<std::string>() : "http") + "://";
    // A number, not a boolean.
    const bool onLocalhost = local.is<double>() && cutToInt(local.get<double>()) == 1;
    uri += (onLocalhost ? "localhost" : Kestrel::SysInfo::the().hostName()) + ":";
    if (config.count("deliveryPort") == 0)
        uri += defaultDeliveryPort();
    else if (port.is<double>())
        uri += integerPart(port.get<double>());
    state.setDeliveryService(uri);
}

void TranscoderLegacyServiceProvider::startWorkers(std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        auto worker = std::make_unique<JobProcThread>();
        worker->begin();
        state.workerThreads.push_back(std::move(worker));
    }
}

// One after the other: each goes on with its work until its turn comes.
void TranscoderLegacyServiceProvider::stopWorkers() {
    for (auto& worker : state.workerThreads) {
        worker->requestStop();
        worker->join();
        worker.reset();
    }
    state.workerThreads.clear();
}

// Without any worker no job would run until the next reconfiguration, so the first one is tried for
// again for some time. With fewer than were asked for the service is slow, and says so.
void TranscoderLegacyServiceProvider::startNewWorkers(std::int32_t count) {
    constexpr int tries = 50;
    constexpr unsigned long pauseMillis = 100;
    for (int left = tries;; --left) {
        try {
            startWorkers(count);
            return;
        } catch (const std::system_error& error) {
            const std::size_t started = state.workerThreads.size();
            if (started == 0 && left > 1) {
                Kestrel::Thread::sleep(pauseMillis);
                continue;
            }
            MessageLog::the()->log("reconfiguration: " + std::to_string(started) + " of " +
                                   std::to_string(count) + " threads: " + error.what());
            if (started == 0)
                throw;
            return;
        }
    }
}

// Every thread is replaced, also where the number stays the same. The number that the front page
// shows stays that of the start.
void TranscoderLegacyServiceProvider::reconfigureThreads(std::int32_t count) {
    if (count < 1)
        return;
    if (count > maxThreads) {
        MessageLog::the()->log("reconfiguration: too many threads: " + std::to_string(count));
        return;
    }
    const auto& workers = state.workerThreads;
    std::fprintf(stderr, "from %d threads to %d threads\n", static_cast<int>(workers.size()),
                 count);
    stopWorkers();
    startNewWorkers(count);
    std::fprintf(stderr, "at %d threads to %d threads\n", static_cast<int>(workers.size()), count);
}

void TranscoderLegacyServiceProvider::clearCache() {
    state.store->clear();
    if (!JobFolder::isFolder(state.cachePath))
        return;
    std::cout << "clearing cache: " << std::flush;
    JobFolder::removeAll(state.cachePath);
}

void TranscoderLegacyServiceProvider::registerWithHub() {
    if (state.hubClient)
        return;
    const OstrandService& host = OstrandService::the();
    auto client = std::make_unique<OstrandHubServiceProvider>(state.cachePath, host.group, false);
    // It is given neither way of registration, and so registers by multicast.
    client->mcastPort = host.mport;
    client->setAddress(Portico::InetAddress::getByAddress(host.maddr));
    client->mcastTtl = host.mttl;
    client->refreshInterval = static_cast<std::uint16_t>(host.refresh);

    // Blanks are part of the document's form; the hub is to see this provider as the transcoder.
    std::ostringstream out;
    out << "{\n"
        << "  \"Command\" : \"addServiceProvider\",\n"
        << "  \"Group\" : \"" << host.group << "\",\n"
        << "  \"ServiceProvider\" : \n"
        << "  {\n"
        << "    \"Service\"    : \"TranscoderService\",\n"
        << "    \"ProviderId\" : \"" << client->getUUID() << "\",\n"
        << "    \"Host\"       : \"" << Kestrel::SysInfo::the().hostName() << "\",\n"
        << "    \"Port\"       : " << host.port << ",\n"
        << "    \"DataPort\"   : " << host.port + 1 << ",\n"
        << "    \"JobUri\"     : \"/job\"\n"
        << "  }\n"
        << "}\n";
    // Web threads read it from here on.
    OstrandHubServiceProvider* const published = client.release();
    state.hubClient = published;
    if (published->open())
        published->addServiceProvider(out.str(), host.ssl);
}

void TranscoderLegacyServiceProvider::deregisterFromHub() {
    if (OstrandHubServiceProvider* const client = state.hubClient)
        client->removeServiceProvider(OstrandService::the().ssl);
}

void TranscoderLegacyServiceProvider::shutdown() {
    deregisterFromHub();
    deliveryServer.stop();
    {
        const std::lock_guard<std::mutex> lock(state.workersMutex);
        stopWorkers();
    }
    state.store->settle();
    releaseState();
}

// The host destroys the base part alone, so the state is ended here.
void TranscoderLegacyServiceProvider::releaseState() {
    LegacyState::current = nullptr;
    deliveryServer.clearPages();
    ownedState.reset();
}

} // namespace OstrandService

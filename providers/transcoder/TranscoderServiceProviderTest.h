#pragma once

#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/hub/SystemInfo.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "providers/transcoder/TranscoderServiceProvider.h"
#include "tests/support/ProviderStand.h"
#include "tests/support/Whitelists.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace OstrandService {

/// A transcoder in which every program may run, and a look at what it holds.
class TranscoderServiceProviderTest : public Support::ProviderStand<TranscoderServiceProvider> {
protected:
    using Job = boost::shared_ptr<ServiceTranscoderJob>;

    // With the workers gone before the whitelists are put back.
    ~TranscoderServiceProviderTest() override { destroy(); }

    /// Starts workers alone, with no server; only behind init().
    void startWorkers(std::size_t count) {
        provider->workerThreads.resize(count, nullptr);
        provider->ServiceProvider::start();
    }

    /// The id that the answer to a submission names.
    std::string submit(const std::string& json) {
        const std::string body = post(json).body();
        return body.substr(0, body.find('@'));
    }

    Job job(std::size_t id) const {
        const boost::lock_guard<boost::mutex> lock(provider->jobListMutex);
        return id < provider->jobs.size() ? provider->jobs[id] : Job();
    }

    std::size_t tableSize() const {
        const boost::lock_guard<boost::mutex> lock(provider->jobListMutex);
        return provider->jobs.size();
    }

    std::map<std::string, std::uint32_t> index() const {
        const boost::lock_guard<boost::mutex> lock(provider->jobListMutex);
        return provider->jobIndex;
    }

    /// Waits until the marker of a job has gone, which is the last thing of its run.
    bool waitForEnd(const std::string& id) const {
        return Support::waitUntil([&] { return !folder.has("cache/P/" + id + "/.partial"); });
    }

    void clearCache() { provider->clearCache(); }
    std::string deliveryUrl() const { return provider->getDeliveryUrl(); }
    std::uint32_t workerCount() const { return provider->workerCount; }
    std::uint16_t deliveryPort() const { return provider->deliveryPort; }
    std::string fettlePath() const { return provider->fettlePath; }
    Portico::ThreadedWebServer& deliveryServer() { return provider->deliveryServer; }

    static std::unique_ptr<Portico::WebPage> makeDeliveryPage(const std::string& prefix,
                                                              const std::string& root);

    Support::Whitelists whitelists;
};

} // namespace OstrandService

#pragma once

#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/hub/SystemInfo.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "providers/transcoder/TranscoderServiceProvider.h"
#include "tests/support/HostOptions.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/Requests.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/Whitelists.h"

#include <boost/program_options.hpp>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace OstrandService {

/// A transcoder with folders of the test's own, made, initialised and destroyed as the host does
/// it, and a look at what it holds. Its providerId is "P"; every program may run.
class TranscoderServiceProviderTest : public ::testing::Test {
protected:
    using Reply = ServiceProvider::Reply;
    using Request = ServiceProvider::Request;
    using Job = boost::shared_ptr<ServiceTranscoderJob>;
    using Words = std::vector<std::string>;

    TranscoderServiceProviderTest() {
        ::setenv("OSTRANDHUB_DATA", folder.path("hub").c_str(), 1);
        HostOptions::host().host = "name";
        HostOptions::host().port = 4711;
        provider = new TranscoderServiceProvider;
    }

    ~TranscoderServiceProviderTest() override {
        destroy();
        ::unsetenv("OSTRANDHUB_DATA");
    }

    using HostOptions = Support::HostOptions;

    /// Ends the provider as the host does: its base part alone is destroyed.
    void destroy() {
        if (!provider)
            return;
        const Support::OutputCapture capture;
        provider->shutdown();
        provider->ServiceProvider::~ServiceProvider();
        ::operator delete(static_cast<void*>(provider));
        provider = nullptr;
    }

    /// Initialises the provider with these options behind those for its folders and its id.
    bool init(const Words& words = {}) {
        Words all{"--cache_path",     folder.path("cache"), "--log_path",
                  folder.path("log"), "--providerid",       "P"};
        all.insert(all.end(), words.begin(), words.end());
        boost::program_options::options_description desc;
        provider->addOptions(desc);
        boost::program_options::variables_map vm;
        boost::program_options::store(
            boost::program_options::command_line_parser(all).options(desc).run(), vm);
        boost::program_options::notify(vm);
        Support::OutputCapture capture;
        const bool done = provider->init(vm);
        output = capture.output();
        errors = capture.errors();
        return done;
    }

    /// Ends the provider and starts a new one on the same folders.
    bool restart(const Words& words = {}) {
        destroy();
        provider = new TranscoderServiceProvider;
        return init(words);
    }

    /// Starts workers alone, with no server; only behind init().
    void startWorkers(std::size_t count) {
        provider->workerThreads.resize(count, nullptr);
        provider->ServiceProvider::start();
    }

    Reply post(const std::string& json, const Request& request = Request()) {
        picojson::value value;
        EXPECT_EQ(picojson::parse(value, json), "") << json;
        Reply reply;
        EXPECT_TRUE(provider->addJob(request, value, reply));
        return reply;
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

    std::size_t queued() const {
        const boost::lock_guard<boost::mutex> lock(provider->jobQueue.mutex);
        return provider->jobQueue.items.size();
    }

    /// "jobs queued or running, finished, failed".
    std::string counters() const {
        return std::to_string(provider->numJobs) + " " + std::to_string(provider->numJobsFinished) +
               " " + std::to_string(provider->numJobsFailed);
    }

    bool waitForIdle() const {
        return Support::waitUntil([this] { return provider->numJobs == 0; });
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

    Support::TemporaryFolder folder;
    Support::HostOptions hostOptions;
    Support::Whitelists whitelists;
    TranscoderServiceProvider* provider = nullptr;
    std::string output; ///< of the last init()
    std::string errors; ///< of the last init()
};

} // namespace OstrandService

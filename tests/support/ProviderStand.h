#pragma once

#include "framework/ServiceProvider.h"
#include "tests/support/HostOptions.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/Requests.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

#include <boost/program_options.hpp>
#include <boost/thread/lock_guard.hpp>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Support {

/// Base of a provider's tests: the provider with folders of the test's own, made, initialised and
/// destroyed as the host does it. Its providerId is "P", its hub data folder "hub" in `folder`.
template <typename Provider>
class ProviderStand : public ::testing::Test {
protected:
    using HostOptions = Support::HostOptions;
    using Reply = OstrandService::ServiceProvider::Reply;
    using Request = OstrandService::ServiceProvider::Request;
    using Words = std::vector<std::string>;

    ProviderStand() {
        ::setenv("OSTRANDHUB_DATA", folder.path("hub").c_str(), 1);
        HostOptions::host().host = "name";
        HostOptions::host().port = 4711;
        provider = new Provider;
    }

    ~ProviderStand() override {
        destroy();
        ::unsetenv("OSTRANDHUB_DATA");
    }

    /// Ends the provider as the host does: its base part alone is destroyed.
    void destroy() {
        if (!provider)
            return;
        const OutputCapture capture;
        provider->shutdown();
        using Base = OstrandService::ServiceProvider;
        static_cast<Base*>(provider)->Base::~Base();
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
        OutputCapture capture;
        const bool done = provider->init(vm);
        output = capture.output();
        errors = capture.errors();
        return done;
    }

    /// Ends the provider and starts a new one on the same folders.
    bool restart(const Words& words = {}) {
        destroy();
        provider = new Provider;
        return init(words);
    }

    Reply post(const std::string& json, const Request& request = Request()) {
        picojson::value value;
        EXPECT_EQ(picojson::parse(value, json), "") << json;
        Reply reply;
        EXPECT_TRUE(provider->addJob(request, value, reply));
        return reply;
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
        return waitUntil([this] { return provider->numJobs == 0; });
    }

    TemporaryFolder folder;
    HostOptions hostOptions;
    Provider* provider = nullptr;
    std::string output; ///< of the last init()
    std::string errors; ///< of the last init()
};

} // namespace Support

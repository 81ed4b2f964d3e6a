#pragma once

#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/hub/SystemInfo.h"
#include "providers/render/DappleRenderServiceProvider.h"
#include "providers/render/ServiceDappleRenderJob.h"
#include "tests/support/ProviderStand.h"

#include <string>
#include <vector>

namespace OstrandService {

/// A render provider and a look at its slots. What it writes to standard error is caught by
/// request.
class DappleRenderServiceProviderTest : public Support::ProviderStand<DappleRenderServiceProvider> {
protected:
    using Job = ServiceProvider::Job;

    static constexpr const char* configFile = "hub/config/dappleconfig.json";

    ~DappleRenderServiceProviderTest() override { destroy(); }

    /// Initialises the provider with a configuration of these renderer entries.
    bool initWith(const std::string& entries) {
        folder.write(configFile, "{\"renderer\":[" + entries + "]}");
        return init();
    }

    /// Starts a worker for each slot; returns what that wrote to standard error.
    std::string start() {
        Support::OutputCapture capture;
        provider->start();
        return capture.errors();
    }

    /// Submits a job, or an array of them as the framework does; `written` is what went to standard
    /// error.
    Reply submit(const std::string& json) {
        Support::OutputCapture capture;
        Reply reply = post(json);
        written = capture.errors();
        return reply;
    }

    Reply ask(const std::string& method, const std::string& uri) {
        const auto request = Support::makeRequest(method, uri);
        Support::OutputCapture capture;
        Reply reply;
        reply.setCode(500);
        EXPECT_TRUE(method == "DELETE" ? provider->deleteJob(request, reply)
                                       : provider->getJob(request, reply));
        written = capture.errors();
        return reply;
    }

    Reply get(const std::string& uri) { return ask("GET", uri); }
    Reply remove(const std::string& uri) { return ask("DELETE", uri); }

    const std::vector<RendererSlot>& slots() const { return provider->slots; }

    std::size_t tableSize() const {
        const boost::lock_guard<boost::mutex> lock(provider->slotMutex);
        return provider->slotJobs.size();
    }

    /// The job in a slot, or null.
    Job job(std::size_t slot) const {
        const boost::lock_guard<boost::mutex> lock(provider->slotMutex);
        return slot < provider->slotJobs.size() ? provider->slotJobs[slot] : Job();
    }

    /// Waits until a job's application runs, or has the state.
    bool waitForState(std::size_t slot, JobState state) const {
        return Support::waitUntil([&] { return job(slot) && job(slot)->state == state; });
    }

    std::string written; ///< to standard error, by the last submit(), get() or remove()
};

} // namespace OstrandService

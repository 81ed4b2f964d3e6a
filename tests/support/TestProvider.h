#pragma once

#include "framework/ServiceJobBase.h"
#include "framework/ServiceProvider.h"
#include "platform/portico/ProtocolHTTP.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Support {

/// A provider that records what the framework asks of it and answers as the test wants.
class TestProvider : public OstrandService::ServiceProvider {
public:
    TestProvider() : TestProvider("", "") {}
    TestProvider(const std::string& logFolder, const std::string& cacheFolder)
        : ServiceProvider(logFolder, cacheFolder) {}
    ~TestProvider() = default;

    bool handleFrontPage(const Request&, Reply& reply) override {
        return answer("front page", reply);
    }
    bool addJob(const Request&, const picojson::value& job, Reply& reply) override {
        return onAddJob ? onAddJob(job, reply) : answer("addJob " + job.serialize(), reply);
    }
    bool deleteJob(const Request&, Reply& reply) override { return answer("deleteJob", reply); }
    bool getJob(const Request&, Reply& reply) override { return answer("getJob", reply); }
    bool listJobsHtml(const Request&, Reply& reply) override {
        return answer("listJobsHtml", reply);
    }
    bool listJobsJson(const Request&, Reply& reply) override {
        return answer("listJobsJson", reply);
    }
    void jobFinished(Job& job) override {
        ServiceProvider::jobFinished(job);
        record("finished " + std::to_string(job->id) + " " + job->stateName());
    }
    void jobRemoved(Job& job) override {
        ServiceProvider::jobRemoved(job);
        record("removed " + std::to_string(job->id) + " " + job->stateName());
    }

    void record(const std::string& event) {
        const std::lock_guard<std::mutex> lock(eventMutex);
        recorded.push_back(event);
    }

    /// What was recorded so far, in order.
    std::vector<std::string> events() const {
        const std::lock_guard<std::mutex> lock(eventMutex);
        return recorded;
    }

    bool result = true; ///< of the page handlers
    std::function<bool(const picojson::value&, Reply&)> onAddJob;

private:
    bool answer(const std::string& what, Reply& reply) {
        record(what);
        reply.body() = what;
        return result;
    }

    mutable std::mutex eventMutex; ///< guards `recorded`
    std::vector<std::string> recorded;
};

} // namespace Support

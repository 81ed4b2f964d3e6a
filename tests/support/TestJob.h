#pragma once

#include "framework/ServiceJobBase.h"

#include <boost/shared_ptr.hpp>
#include <boost/smart_ptr/make_shared.hpp>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Support {

/// A job whose commands and whose reaction to a state are the test's.
class TestJob : public OstrandService::ServiceJobBase {
public:
    using JobState = OstrandService::JobState;

    /// A job that runs these command lines.
    static boost::shared_ptr<TestJob> make(std::vector<std::string> lines = {}) {
        Commands commands;
        for (std::string& line : lines)
            commands.push_back({std::move(line)});
        return withCommands(std::move(commands));
    }

    static boost::shared_ptr<TestJob> withCommands(Commands commands) {
        auto job = boost::make_shared<TestJob>();
        job->commandsToRun = std::move(commands);
        return job;
    }

    void setState(JobState newState) override {
        ServiceJobBase::setState(newState);
        {
            const std::lock_guard<std::mutex> lock(historyMutex);
            history.push_back(newState);
        }
        if (onState)
            onState(newState);
    }

    void cleanup() override {
        if (onCleanup)
            onCleanup();
    }

    void getCommands(Commands& commands) override {
        commands.insert(commands.end(), commandsToRun.begin(), commandsToRun.end());
    }

    void getEnvironment(OstrandService::EnvironmentList& env) override { env = environment; }

    void prepare(const std::string& basePath) override { setWorkDir(basePath); }

    /// The states that were set, in order.
    std::vector<JobState> states() const {
        const std::lock_guard<std::mutex> lock(historyMutex);
        return history;
    }

    Commands commandsToRun;
    OstrandService::EnvironmentList environment;
    std::function<void(JobState)> onState; ///< called behind each setState(), on its thread
    std::function<void()> onCleanup;

private:
    mutable std::mutex historyMutex; ///< guards `history`
    std::vector<JobState> history;
};

} // namespace Support

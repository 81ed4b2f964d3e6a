#include "providers/transcoder/UnsettledJobs.h"

#include "platform/hub/MessageLog.h"
#include "providers/transcoder/ServiceTranscoderJob.h"

#include <cstddef>
#include <string>

namespace OstrandService {

namespace {

constexpr std::size_t mostFailures =
    16; ///< in one pass: a disk that takes nothing is not asked for all

} // namespace

void UnsettledJobs::add(const boost::shared_ptr<ServiceTranscoderJob>& job) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        jobs.push_back(job);
    }
    MessageLog::the()->log("job " + std::to_string(job->id) +
                           ": its end cannot be written and is tried again");
}

void UnsettledJobs::settle() {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<boost::shared_ptr<ServiceTranscoderJob>> left;
    auto job = jobs.begin();
    for (; job != jobs.end() && left.size() < mostFailures; ++job) {
        if (!(*job)->settle())
            left.push_back(*job);
    }
    // To the end: the others have their turn first.
    jobs.erase(jobs.begin(), job);
    jobs.insert(jobs.end(), left.begin(), left.end());
}

void UnsettledJobs::clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<boost::shared_ptr<ServiceTranscoderJob>>().swap(jobs);
}

} // namespace OstrandService

#include "framework/JobFolder.h"
#include "framework/NumberedFolders.h"
#include "platform/hub/HubFiles.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/kestrel/Thread.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "providers/transcoder/TranscoderServiceProvider.h"

#include <boost/thread/lock_guard.hpp>
#include <iostream>

namespace OstrandService {

namespace {

constexpr int maxClearTries = 1000; ///< looks, a millisecond apart, for a moment to clear the cache

} // namespace

void TranscoderServiceProvider::loadOldJobs() {
    if (!JobFolder::isFolder(cachePath))
        return;
    std::cout << "Loading old jobs: " << std::flush;
    std::uint32_t loaded = 0;
    for (const auto& folder : numberedFolders<std::int32_t>(cachePath)) {
        try {
            if (loadFolder(folder.first, folder.second))
                ++loaded;
        } catch (const std::exception& error) {
            MessageLog::the()->log("old job skipped: " + folder.second + ": " + error.what());
        }
    }
    std::cout << loaded << std::endl;
}

bool TranscoderServiceProvider::loadFolder(std::int32_t id, const std::string& folder) {
    std::string metaText;
    if (!OstrandHub::getFileContents((folder + "/.meta").c_str(), metaText))
        return false;
    // The table has a place for every id up to the highest: a stray folder with a large number
    // must not take all memory at every start.
    if (id < 0 || id > JobFolder::maxId) {
        MessageLog::the()->log("old job skipped, no usable id: " + folder);
        return false;
    }
    return loadJob(static_cast<std::uint32_t>(id), metaText.c_str(), folder);
}

bool TranscoderServiceProvider::loadJob(std::uint32_t id, const std::string& metaText,
                                        const std::string& folder) {
    picojson::value value;
    if (!OstrandHub::parseJson(metaText, value))
        return false;
    const TranscoderJob job = ServiceTranscoderJob::create(value, providerId);
    if (!job)
        return false;
    job->setWorkDir(folder);
    job->readStatus();
    job->id = id;
    if (id >= jobs.size())
        jobs.resize(id + 1);
    jobs[id] = job;
    jobIndex[job->desc.getUid()] = id;
    // A run that was cut off starts over.
    if (job->state == JobState::IN_PROCESS)
        job->setState(JobState::OPEN);
    if (job->state == JobState::ERROR) {
        ++numJobsFailed;
    } else if (job->state == JobState::OPEN) {
        ++numJobs;
        job->expectRun();
        jobQueue.push(job);
        job->resultText = "Not Run Yet";
    } else {
        // Whatever the state, TERMINATED and CANCELED included.
        ++numJobsFinished;
    }
    return true;
}

bool TranscoderServiceProvider::isIdle() {
    return numJobs == 0 && jobQueue.empty() && secondaryQueue.empty();
}

// Dropped without a word while a job waits or runs. What is only on its way into the queue, or
// out of a run, takes no more than moments and is waited for with the table free: a job that was
// answered must not be forgotten, nor its folder removed under it.
void TranscoderServiceProvider::clearCache() {
    for (int tries = 0; tries < maxClearTries && isIdle(); ++tries) {
        {
            const boost::lock_guard<boost::mutex> lock(jobListMutex);
            if (transitions == 0 && isIdle()) {
                emptyTables();
                if (JobFolder::isFolder(cachePath))
                    removeJobFolders();
                return;
            }
        }
        Kestrel::Thread::sleep(1);
    }
}

void TranscoderServiceProvider::emptyTables() {
    unsettled.clear();
    jobIndex.clear();
    jobs.clear();
    numJobs = 0;
    numJobsFinished = 0;
    numJobsFailed = 0;
    jobs.emplace_back();
}

void TranscoderServiceProvider::removeJobFolders() {
    std::cout << "clearing cache in: " << cachePath << std::endl;
    JobFolder::removeAll(cachePath);
}

} // namespace OstrandService

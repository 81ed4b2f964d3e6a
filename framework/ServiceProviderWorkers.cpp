#include "framework/ServiceJobBase.h"
#include "framework/ServiceProvider.h"
#include "platform/hub/MessageLog.h"

#include <cstdio>
#include <exception>

namespace OstrandService {

void ServiceProvider::workerLoop() {
    while (running) {
        Job job = jobQueue.pop();
        if (!job)
            continue;
        try {
            if (job->state == JobState::MARKED_FOR_DELETION) {
                job->cleanup();
                jobRemoved(job);
            } else {
                workOn(job);
            }
        } catch (...) {
            // Out of memory at the worst. One job suffers, the worker lives on.
            std::fprintf(stderr, "a worker failed on job %u\n", static_cast<unsigned>(job->id));
        }
    }
}

void ServiceProvider::workOn(Job& job) {
    try {
        job->run();
    } catch (const std::exception& error) {
        job->state = JobState::ERROR;
        MessageLog::the()->log("job " + std::to_string(job->id) + " failed: " + error.what());
        job->setState(JobState::ERROR);
    }
    jobFinished(job);
    if (job->state != JobState::TERMINATING)
        return;
    // A job that was stopped is cleaned up by a worker, not by the web thread that asked for it,
    // and ahead of all jobs that wait.
    job->setState(JobState::MARKED_FOR_DELETION);
    {
        const boost::lock_guard<boost::mutex> lock(jobQueue.mutex);
        jobQueue.pushFront(job);
    }
    jobQueue.notEmpty.notify_one();
}

void ServiceProvider::jobFinished(boost::shared_ptr<ServiceJobBase>& job) {
    if (!job)
        return;
    const JobState state = job->state;
    if (state == JobState::ERROR || state == JobState::TERMINATED)
        ++numJobsFailed;
    else
        ++numJobsFinished;
    --numJobs;
}

void ServiceProvider::jobRemoved(boost::shared_ptr<ServiceJobBase>& /*job*/) {}

} // namespace OstrandService

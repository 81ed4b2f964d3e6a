#pragma once

#include "providers/transcoder/ServiceTranscoderJob.h"

#include <atomic>
#include <cstdint>

namespace OstrandService {

/// Counts itself in `counter` for as long as it lives.
class Transition {
public:
    explicit Transition(std::atomic<std::uint32_t>& counted) : counter(counted) { ++counter; }
    ~Transition() { --counter; }
    Transition(const Transition&) = delete;
    Transition& operator=(const Transition&) = delete;

private:
    std::atomic<std::uint32_t>& counter;
};

/// Ends the acceptance of a job when it goes out of scope: nobody may be left waiting for it.
/// Without succeeded() before, the job is in ERROR then, and the next submission of its uid runs
/// it.
class AcceptanceGuard {
public:
    /// `own` tells that this thread has brought the job, and others wait for it.
    AcceptanceGuard(ServiceTranscoderJob& accepted, bool own) : job(accepted), isOwn(own) {}
    ~AcceptanceGuard() {
        if (!success)
            job.state = JobState::ERROR;
        if (isOwn)
            job.endAcceptance();
    }
    AcceptanceGuard(const AcceptanceGuard&) = delete;
    AcceptanceGuard& operator=(const AcceptanceGuard&) = delete;

    void succeeded() { success = true; }

private:
    ServiceTranscoderJob& job;
    const bool isOwn;
    bool success = false;
};

} // namespace OstrandService

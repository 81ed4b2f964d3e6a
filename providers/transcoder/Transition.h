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

/// Ends the acceptance of a job, if there is one, when it goes out of scope: nobody may be left
/// waiting for it.
class AcceptanceGuard {
public:
    explicit AcceptanceGuard(ServiceTranscoderJob* accepted) : job(accepted) {}
    ~AcceptanceGuard() {
        if (job)
            job->endAcceptance();
    }
    AcceptanceGuard(const AcceptanceGuard&) = delete;
    AcceptanceGuard& operator=(const AcceptanceGuard&) = delete;

private:
    ServiceTranscoderJob* job;
};

} // namespace OstrandService

#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace OstrandHub {

/// The time by which registrations are renewed. Any thread may use it.
class HubClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~HubClock() = default;

    virtual TimePoint now() = 0;

    /// Waits until `condition` is notified or the time has come; may return early.
    virtual void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                           TimePoint time) = 0;
};

/// The system's steady clock.
std::shared_ptr<HubClock> makeSteadyClock();

} // namespace OstrandHub

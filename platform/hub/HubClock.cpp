#include "platform/hub/HubClock.h"

namespace OstrandHub {

namespace {

class SteadyClock : public HubClock {
public:
    TimePoint now() override { return std::chrono::steady_clock::now(); }

    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   TimePoint time) override {
        condition.wait_until(lock, time);
    }
};

} // namespace

std::shared_ptr<HubClock> makeSteadyClock() {
    return std::make_shared<SteadyClock>();
}

} // namespace OstrandHub

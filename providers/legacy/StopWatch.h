#pragma once

#include <chrono>

namespace OstrandService {

/// The clock of the legacy provider's job times. Read-only after construction, for any thread; it
/// never goes back.
class StopWatch {
public:
    StopWatch() : startTime(std::chrono::steady_clock::now()) {}

    /// Milliseconds since construction, with fractions.
    double read() const {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() -
                                                         startTime)
            .count();
    }

private:
    std::chrono::steady_clock::time_point startTime;
};

} // namespace OstrandService

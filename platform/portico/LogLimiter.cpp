#include "platform/portico/LogLimiter.h"

#include <utility>

namespace Portico {

LogLimiter::LogLimiter(int linesPerMinute, Sink target)
    : limit(linesPerMinute > 0 ? static_cast<std::uint64_t>(linesPerMinute) : 0),
      sink(std::move(target)), windowStart(Clock::time_point::min()) {}

/// Begins a new minute where the last one is over. Returns what the log has to be told; the mutex
/// is held.
std::uint64_t LogLimiter::takeSuppressed(Clock::time_point now, bool force) {
    const bool first = windowStart == Clock::time_point::min();
    const bool over = first || now - windowStart >= std::chrono::minutes(1);
    if (over) {
        windowStart = now;
        written = 0;
    }
    return over || force ? std::exchange(suppressed, 0) : 0;
}

void LogLimiter::line(const std::string& text, Clock::time_point now) {
    std::uint64_t left = 0;
    bool passes = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        left = takeSuppressed(now, false);
        passes = written < limit;
        if (passes)
            ++written;
        else
            ++suppressed;
    }
    report(left);
    if (passes)
        sink(text);
}

void LogLimiter::flush(bool force, Clock::time_point now) {
    std::uint64_t left = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        left = takeSuppressed(now, force);
    }
    report(left);
}

void LogLimiter::report(std::uint64_t count) const {
    if (count > 0)
        sink("web server: " + std::to_string(count) + " more lines left out");
}

} // namespace Portico

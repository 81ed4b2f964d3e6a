#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

namespace Portico {

/// Lets so many lines a minute through to the log and counts the others, so that a client that
/// sends rubbish can't fill the disk. Used by all threads of a server.
class LogLimiter {
public:
    using Clock = std::chrono::steady_clock;
    using Sink = std::function<void(const std::string&)>;

    /// `target` gets the lines that pass, outside the lock and possibly from several threads.
    LogLimiter(int linesPerMinute, Sink target);

    /// Passes `text` on or counts it.
    void line(const std::string& text, Clock::time_point now = Clock::now());

    /// Writes the count of a minute that is over; with `force` of the current one too.
    void flush(bool force, Clock::time_point now = Clock::now());

private:
    std::uint64_t takeSuppressed(Clock::time_point now, bool force);
    void report(std::uint64_t count) const;

    const std::uint64_t limit;
    const Sink sink;

    std::mutex mutex; ///< guards what follows
    Clock::time_point windowStart;
    std::uint64_t written = 0;
    std::uint64_t suppressed = 0;
};

} // namespace Portico

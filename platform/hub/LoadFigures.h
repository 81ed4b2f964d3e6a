#pragma once

#include <cstdint>
#include <string>

namespace OstrandHub {

/// The machine's load as the kernel counts it. What can't be read is 0.
struct LoadFigures {
    std::uint64_t busyTicks = 0;   ///< of all processors since the start, not idle
    std::uint64_t totalTicks = 0;  ///< of all processors since the start
    double load1 = 0;              ///< load average of the last minute
    std::uint64_t memUsedKib = 0;  ///< total less what programs could get
    std::uint64_t memTotalKib = 0; ///< main memory
    std::uint64_t rssKib = 0;      ///< main memory that this process holds
};

/// The figures now.
LoadFigures readLoadFigures();

/// The figures from the texts of the kernel's files /proc/stat, loadavg, meminfo and self/statm,
/// whose pages have `pageKib`. Text of another form gives zeros.
LoadFigures parseLoadFigures(const std::string& stat, const std::string& loadavg,
                             const std::string& meminfo, const std::string& statm,
                             std::uint64_t pageKib);

/// Share of the processors' time in use between two readings, 0 to 100; 0 where no time has passed.
double cpuPercent(const LoadFigures& before, const LoadFigures& now);

} // namespace OstrandHub

#include "platform/hub/LoadFigures.h"

#include "platform/hub/HubFiles.h"

#include <algorithm>
#include <cstddef>
#include <locale>
#include <sstream>
#include <unistd.h>

namespace OstrandHub {

namespace {

std::istringstream reader(const std::string& text) {
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    return in;
}

/// Reads the line of all processors: user, nice, system, idle, iowait, irq, softirq, steal.
void readTicks(const std::string& stat, LoadFigures& figures) {
    std::istringstream in = reader(stat);
    std::string label;
    in >> label;
    if (label != "cpu")
        return;
    constexpr int columns = 8; // the guests' time behind them is counted in user already
    std::uint64_t ticks = 0;
    for (int column = 0; column < columns && in >> ticks; ++column) {
        figures.totalTicks += ticks;
        if (column != 3 && column != 4)
            figures.busyTicks += ticks;
    }
}

/// The figure of a line "LABEL:   123 kB".
std::uint64_t memoryLine(const std::string& meminfo, const std::string& label) {
    std::istringstream lines = reader(meminfo);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.compare(0, label.size(), label) != 0)
            continue;
        std::uint64_t value = 0;
        std::istringstream in = reader(line.substr(label.size()));
        return in >> value ? value : 0;
    }
    return 0;
}

std::string contents(const char* path) {
    std::string text;
    getFileContents(path, text);
    return text;
}

} // namespace

LoadFigures parseLoadFigures(const std::string& stat, const std::string& loadavg,
                             const std::string& meminfo, const std::string& statm,
                             std::uint64_t pageKib) {
    LoadFigures figures;
    readTicks(stat, figures);
    reader(loadavg) >> figures.load1;
    figures.memTotalKib = memoryLine(meminfo, "MemTotal:");
    const std::uint64_t available = memoryLine(meminfo, "MemAvailable:");
    figures.memUsedKib = figures.memTotalKib - std::min(available, figures.memTotalKib);
    std::uint64_t sizePages = 0;
    std::uint64_t residentPages = 0;
    if (reader(statm) >> sizePages >> residentPages)
        figures.rssKib = residentPages * pageKib;
    return figures;
}

LoadFigures readLoadFigures() {
    const auto pageKib =
        static_cast<std::uint64_t>(std::max(::sysconf(_SC_PAGESIZE), 1024L)) / 1024;
    return parseLoadFigures(contents("/proc/stat"), contents("/proc/loadavg"),
                            contents("/proc/meminfo"), contents("/proc/self/statm"), pageKib);
}

double cpuPercent(const LoadFigures& before, const LoadFigures& now) {
    // The kernel's counters may step back a little, those of waiting processors above all.
    if (now.totalTicks <= before.totalTicks || now.busyTicks <= before.busyTicks)
        return 0;
    const auto busy = static_cast<double>(now.busyTicks - before.busyTicks);
    const auto total = static_cast<double>(now.totalTicks - before.totalTicks);
    return std::min(100.0 * busy / total, 100.0);
}

} // namespace OstrandHub

#include "platform/hub/SystemInfo.h"

#include "platform/hub/LoadFigures.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/RotatingFile.h"

#include <iomanip>
#include <locale>
#include <optional>
#include <sstream>
#include <string>

namespace {

constexpr const char* csvHeader = "time,cpu_percent,load1,mem_used_kib,mem_total_kib,rss_kib";

} // namespace

struct SystemInfo::State {
    std::optional<OstrandHub::LoadFigures> figures; ///< of the last sample
    double cpu = 0; ///< percent, between the last two samples; 0 at the first
    std::unique_ptr<OstrandService::RotatingFile> csv;
};

SystemInfo::SystemInfo() : state(std::make_unique<State>()) {}

SystemInfo::~SystemInfo() = default;

void SystemInfo::update() {
    if (!state)
        return;
    const OstrandHub::LoadFigures now = OstrandHub::readLoadFigures();
    state->cpu = state->figures ? OstrandHub::cpuPercent(*state->figures, now) : 0;
    state->figures = now;
}

void SystemInfo::update_csv_log() {
    if (!state || !state->figures)
        return;
    if (!state->csv) {
        const std::string folder = OstrandService::MessageLog::getLogPath();
        if (folder.empty())
            return;
        state->csv = std::make_unique<OstrandService::RotatingFile>(
            folder + "/systeminfo.csv", ',', csvHeader, OstrandService::RotatingFile::Limits());
    }
    std::ostringstream row;
    row.imbue(std::locale::classic());
    row << std::fixed << std::setprecision(1) << state->cpu << ',' << std::setprecision(2)
        << state->figures->load1 << ',' << state->figures->memUsedKib << ','
        << state->figures->memTotalKib << ',' << state->figures->rssKib;
    state->csv->write(row.str());
}

void SystemInfo::close() {
    state.reset();
}

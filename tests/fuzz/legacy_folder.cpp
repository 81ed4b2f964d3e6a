// An old folder of the legacy transcoder: whatever stands in its files, the table stays whole, no
// job is taken up again, and the times are the same once more when they are written and read.

#include "platform/hub/MessageLog.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"
#include "tests/fuzz/Input.h"

#include <algorithm>
#include <string>

using namespace OstrandService;

namespace {

void checkTimings(const JobRecord& record) {
    picojson::array list;
    for (const JobRecord::Timing& timing : record.timings)
        list.push_back(picojson::value(picojson::object{{"proc", picojson::value(timing.first)},
                                                        {"done", picojson::value(timing.second)}}));
    const picojson::object document{{"added", picojson::value(record.addedTime)},
                                    {"timings", picojson::value(list)}};
    LegacyState other;
    other.store->loadJob(1, "{}", "/nowhere");
    other.store->loadTimings(1, picojson::value(document).serialize());
    const JobRecord again = other.store->getJobRecord(1);
    Fuzz::require(again.addedTime == record.addedTime && again.timings == record.timings);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MessageLog::setLogPath("/dev/null/none");
    if (size == 0)
        return 0;
    // The files as a folder holds them, one behind the other, separated by zero bytes.
    const std::string_view text = Fuzz::textOf(data + 1, size - 1);
    const std::string meta(text.substr(0, text.find('\0')));
    const std::string timings(text.substr(std::min(text.size(), meta.size() + 1)));
    LegacyState state;
    const std::uint32_t id = 1 + data[0] % 8;
    state.store->loadJob(id, meta, "/nowhere");
    state.store->loadTimings(id, timings);
    Fuzz::require(state.store->maxJobId() == id);
    const JobRecord record = state.store->getJobRecord(id);
    Fuzz::require(record.id == id || record.state == LegacyJobStates::invalid);
    Fuzz::require(!state.store->takeNextOpenJob());
    checkTimings(record);
    const bool marked = state.store->requestDelete(id);
    Fuzz::require(state.store->takeDeleteRequest().has_value() == marked);
    return 0;
}

// An old folder of the legacy transcoder: whatever stands in its files, the table stays whole.

#include "platform/hub/MessageLog.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

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
    state.store->requestDelete(id);
    state.store->takeNextOpenJob();
    state.store->takeDeleteRequest();
    return 0;
}

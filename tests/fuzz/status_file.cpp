// The state in a job's folder: none, or one that there is, and told again as it was read.

#include "framework/StatusFile.h"
#include "providers/legacy/JobRecord.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(Fuzz::textOf(data, size));
    const LegacyJobState legacy = JobRecord::parseStatus(text);
    Fuzz::require(legacy <= LegacyJobStates::invalid);
    Fuzz::require(JobRecord::parseStatus(JobRecord::statusText(legacy)) == legacy);
    const auto state = StatusFile::parse(text);
    if (!state)
        return 0;
    Fuzz::require(static_cast<unsigned>(*state) <= 9);
    Fuzz::require(StatusFile::parse(StatusFile::format(*state)) == state);
    return 0;
}

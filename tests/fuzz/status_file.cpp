// The state in a job's folder: none, or one that there is, and told again as it was read.

#include "framework/StatusFile.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto state = StatusFile::parse(std::string(Fuzz::textOf(data, size)));
    if (!state)
        return 0;
    Fuzz::require(static_cast<unsigned>(*state) <= 9);
    Fuzz::require(StatusFile::parse(StatusFile::format(*state)) == state);
    return 0;
}

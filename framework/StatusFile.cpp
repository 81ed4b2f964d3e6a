#include "framework/StatusFile.h"

#include "platform/hub/Json.h"

namespace OstrandService {

std::string StatusFile::format(JobState state) {
    return "{ \"status\" : " + std::to_string(static_cast<std::uint32_t>(state)) + " }\n";
}

std::optional<JobState> StatusFile::parse(const std::string& text) {
    picojson::value value;
    if (!OstrandHub::parseJson(text, value) || !value.is<picojson::object>())
        return std::nullopt;
    const picojson::value& status = value.get("status");
    if (!status.is<double>())
        return std::nullopt;
    // The range is tested before the cast: a double that no integer can hold has no defined one.
    // What lies between -1 and 0 is cut to 0 like any other fraction.
    const double number = status.get<double>();
    if (!(number > -1.0 && number < 10.0))
        return std::nullopt;
    return static_cast<JobState>(static_cast<std::int32_t>(number));
}

} // namespace OstrandService

#pragma once

#include "framework/JobState.h"

#include <optional>
#include <string>

namespace OstrandService {

/// The file ".status" of a framework job's folder: `{ "status" : N }` and a line end, with the
/// number of a JobState.
class StatusFile {
public:
    /// The file's whole text for a state.
    static std::string format(JobState state);

    /// The state in a file's text; nothing where the text is no JSON object with a number from 0 to
    /// 9 under "status". A fraction is cut off.
    static std::optional<JobState> parse(const std::string& text);
};

} // namespace OstrandService

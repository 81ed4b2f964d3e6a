#pragma once

#include <cstdint>
#include <string>

namespace OstrandService {

/// State of a legacy job: the same number in memory, in ".status" and, by name, on the pages. The
/// table is the legacy provider's own and differs from the framework's JobState from 2 on.
using LegacyJobState = std::int32_t;

namespace LegacyJobStates {
inline constexpr LegacyJobState open = 0;              ///< waits for a worker
inline constexpr LegacyJobState inProcess = 1;         ///< a worker runs it
inline constexpr LegacyJobState closed = 2;            ///< the run succeeded
inline constexpr LegacyJobState error = 3;             ///< the run failed, or the folder is damaged
inline constexpr LegacyJobState markedForDeletion = 4; ///< a worker is to remove its results
inline constexpr LegacyJobState deleted = 5;           ///< its results are gone
inline constexpr LegacyJobState canceled = 6;          ///< deleted before it ran
inline constexpr LegacyJobState terminated = 7;        ///< known from files only
inline constexpr LegacyJobState invalid = 8;           ///< no job: a gap in the numbering
} // namespace LegacyJobStates

/// The name of a state on the pages; "UNDEFINED" for other numbers.
std::string legacyStateName(LegacyJobState state);

} // namespace OstrandService

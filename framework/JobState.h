#pragma once

#include <cstdint>
#include <string>

namespace OstrandService {

/// State of a framework job. The numbers are what the file ".status" of a job folder holds and must
/// not change. The type is fixed so that other numbers are defined values too.
enum class JobState : std::uint32_t {
    OPEN = 0,                ///< accepted, waits for a worker
    IN_PROCESS = 1,          ///< a worker has it; stays for good where the job has no commands
    TERMINATING = 2,         ///< its tool was told to stop
    CLOSED = 3,              ///< the last command ended with exit code 0
    MARKED_FOR_DELETION = 4, ///< was stopped; a worker is to clean it up
    CANCELED = 5,            ///< known from files only
    ERROR = 6,               ///< the last command failed, or the state on disk can't be read
    TERMINATED = 7,          ///< known from files only
    DELETED = 8,             ///< known from files only
    INVALID = 9              ///< constructed, not accepted yet
};

/// The text of a state on pages: "OPEN", "IN PROCESS" and so on, "UNDEFINED" for other numbers.
std::string jobStateName(JobState state);

} // namespace OstrandService

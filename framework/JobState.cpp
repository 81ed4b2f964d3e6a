#include "framework/JobState.h"

namespace OstrandService {

std::string jobStateName(JobState state) {
    switch (state) {
    case JobState::OPEN:
        return "OPEN";
    case JobState::IN_PROCESS:
        return "IN PROCESS";
    case JobState::TERMINATING:
        return "TERMINATING";
    case JobState::CLOSED:
        return "CLOSED";
    case JobState::MARKED_FOR_DELETION:
        return "MARKED FOR DELETION";
    case JobState::CANCELED:
        return "CANCELED";
    case JobState::ERROR:
        return "ERROR";
    case JobState::TERMINATED:
        return "TERMINATED";
    case JobState::DELETED:
        return "DELETED";
    case JobState::INVALID:
        return "INVALID";
    }
    return "UNDEFINED";
}

} // namespace OstrandService

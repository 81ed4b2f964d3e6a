#pragma once

#include "platform/hub/TranscoderJobDesc.h"
#include "providers/legacy/LegacyJobState.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace OstrandService {

/// A legacy job: its description and what the store keeps about it. Held by value in the store and
/// copied whole; every reader outside works on its own copy.
class JobRecord : public TranscoderJobDesc {
public:
    /// Begin and end of one run, milliseconds of the provider's StopWatch.
    using Timing = std::pair<double, double>;

    /// `uploads` is the folder where a resource that names an upload is looked up.
    explicit JobRecord(const std::string& uploads);

    /// Reads the description from a job's text, a JSON object with anything behind it. What is
    /// wrong with it goes to the log. Returns `valid`.
    bool parseJobText(const std::string& text);

    /// Stores the state and rewrites ".status"; touches no counter. False where the file could not
    /// be written; the state is stored all the same.
    bool writeState(LegacyJobState newState);

    /// Takes the state from ".status"; 3 where there is none or it makes no sense. The file stays
    /// as it is.
    void readState();

    /// The text of ".status" for a state.
    static std::string statusText(LegacyJobState state);

    /// The state in a text of ".status"; 3 where it makes no sense.
    static LegacyJobState parseStatus(const std::string& text);

    std::uint32_t id = 0;        ///< index in the store's keys
    double addedTime = 0;        ///< time of addition, milliseconds of the StopWatch
    std::vector<Timing> timings; ///< one pair a run
    std::string folder;          ///< "<cache path>/<id>"
    std::string commandLine;     ///< what the job list shows of the run
    LegacyJobState state = LegacyJobStates::open;
    std::uint32_t generation = 0; ///< of the store at the time of entry; see LegacyJobStore
    std::uint32_t admissions = 0; ///< times that it was taken in; the same
    bool isHandedOut = false;     ///< a worker has it, though its state may be 0 still
};

/// Name of a job's main result: "index." and the extension of its output format.
std::string outputIndexName(const JobRecord& record);

} // namespace OstrandService

#include "providers/legacy/JobRecord.h"

#include "platform/hub/AtomicFile.h"
#include "platform/hub/HubFiles.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"

#include <cstddef>

namespace OstrandService {

namespace {

/// Of a text that is no JSON the log gets so much, bytes: it may be one line of many megabytes.
constexpr std::size_t longestError = 65536;

} // namespace

JobRecord::JobRecord(const std::string& uploads) : TranscoderJobDesc(uploads) {}

bool JobRecord::parseJobText(const std::string& text) {
    picojson::value value;
    std::string error;
    if (!OstrandHub::parseJsonPrefix(text, value, error)) {
        MessageLog::the()->log("JSON POST parsing error: " + error.substr(0, longestError));
        return valid;
    }
    parse(value);
    if (!valid)
        MessageLog::the()->log("JSON POST parsing error: job desc not valid");
    return valid;
}

// No blank before the closing brace, unlike in the framework's file of the same name.
std::string JobRecord::statusText(LegacyJobState state) {
    return "{ \"status\" : " + std::to_string(state) + "}\n";
}

LegacyJobState JobRecord::parseStatus(const std::string& text) {
    picojson::value value;
    std::string error;
    if (!OstrandHub::parseJsonPrefix(text, value, error) || !value.is<picojson::object>())
        return LegacyJobStates::error;
    const picojson::value& status = value.get("status");
    if (!status.is<double>())
        return LegacyJobStates::error;
    // The range is that of the number as it stands: 8.5 and -0.5 are out of it, 2.9 is 2.
    const double number = status.get<double>();
    if (!(number >= LegacyJobStates::open && number <= LegacyJobStates::invalid))
        return LegacyJobStates::error;
    return static_cast<LegacyJobState>(number);
}

bool JobRecord::writeState(LegacyJobState newState) {
    state = newState;
    return OstrandHub::writeFileAtomically(folder + "/.status", statusText(state));
}

void JobRecord::readState() {
    std::string text;
    state = OstrandHub::getFileContents((folder + "/.status").c_str(), text)
                ? parseStatus(text)
                : LegacyJobStates::error;
}

std::string outputIndexName(const JobRecord& record) {
    return "index." + TranscoderJobDesc::format(record.getOutputType()).extension;
}

} // namespace OstrandService

#include "platform/hub/AtomicFile.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/LegacyState.h"

#include <picojson.h>
#include <utility>

namespace OstrandService {

using Guard = Kestrel::MutexGuard;
namespace States = LegacyJobStates;

JobRecord LegacyJobStore::getJobRecord(std::uint32_t id) const {
    const Guard guard(mutex);
    if (const JobRecord* const record = find(id))
        return *record;
    JobRecord none("");
    none.state = States::invalid;
    return none;
}

std::string LegacyJobStore::getKey(std::uint32_t id) const {
    const Guard guard(mutex);
    return id < keys.size() ? keys[id] : std::string();
}

std::vector<std::string> LegacyJobStore::getKeys() const {
    const Guard guard(mutex);
    return std::vector<std::string>(keys.begin() + 1, keys.end());
}

std::string LegacyJobStore::getCommandLine(const std::string& uid) const {
    const Guard guard(mutex);
    const auto found = records.find(uid);
    return found == records.end() ? std::string() : found->second.commandLine;
}

LegacyJobState LegacyJobStore::getJobState(const std::string& uid) const {
    const Guard guard(mutex);
    const auto found = records.find(uid);
    return found == records.end() ? States::invalid : found->second.state;
}

double LegacyJobStore::getAddedTime(std::uint32_t id) const {
    const Guard guard(mutex);
    const JobRecord* const record = find(id);
    return record ? record->addedTime : 0;
}

std::uint32_t LegacyJobStore::maxJobId() const {
    const Guard guard(mutex);
    return static_cast<std::uint32_t>(keys.size() - 1);
}

std::uint32_t LegacyJobStore::numJobsTotal() const {
    const Guard guard(mutex);
    return numJobs;
}

std::uint32_t LegacyJobStore::numJobsFinished() const {
    const Guard guard(mutex);
    return finishedCount + errorCount;
}

std::uint32_t LegacyJobStore::numJobsFailed() const {
    const Guard guard(mutex);
    return errorCount;
}

std::uint32_t LegacyJobStore::numJobsOpen() const {
    const Guard guard(mutex);
    return numJobs - errorCount - finishedCount;
}

void LegacyJobStore::setAddedTime(std::uint32_t id, double time) {
    const Guard guard(mutex);
    if (JobRecord* const record = find(id))
        record->addedTime = time;
}

void LegacyJobStore::addTiming(std::uint32_t id, const JobRecord::Timing& timing) {
    const Guard guard(mutex);
    if (JobRecord* const record = find(id))
        record->timings.push_back(timing);
}

// Copied under the lock, written outside of it.
void LegacyJobStore::writeTimings(const JobRecord& taken, const std::string& path) const {
    picojson::object document;
    picojson::array list;
    {
        const Guard guard(mutex);
        const auto found = records.find(taken.getUid());
        if (taken.generation != generation || found == records.end())
            return;
        document["added"] = picojson::value(found->second.addedTime);
        for (const JobRecord::Timing& timing : found->second.timings) {
            picojson::object pair;
            pair["proc"] = picojson::value(timing.first);
            pair["done"] = picojson::value(timing.second);
            list.push_back(picojson::value(pair));
        }
    }
    document["timings"] = picojson::value(list);
    OstrandHub::writeFileAtomically(path, picojson::value(document).serialize());
}

// A job of an earlier process counts as finished whatever its state, and is not taken up again:
// the cursor stands behind it.
bool LegacyJobStore::loadJob(std::uint32_t id, const std::string& metaText,
                             const std::string& folderPath) {
    JobRecord record(state.uploadPath.string());
    record.folder = folderPath;
    record.generation = generation;
    record.readState();
    if (!record.parseJobText(metaText))
        record.writeState(States::error);
    record.id = id;
    const std::string uid = record.getUid();
    const LegacyJobState loaded = record.state;
    // A uid that is there already keeps the earlier record.
    records.emplace(uid, std::move(record));
    ++numJobs;
    ++finishedCount;
    if (id >= keys.size()) {
        addPlaceholder();
        keys.resize(std::size_t{id} + 1);
    }
    keys[id] = uid;
    if (loaded == States::error || loaded == States::terminated) {
        --finishedCount;
        ++errorCount;
    }
    if (cursor < id)
        cursor = id;
    MessageLog::the()->log("LOADED job: " + std::to_string(id));
    return true;
}

// What the ids of gaps resolve to. Its folder is empty, so its state goes to "/.status" at the
// root; nobody reads that, and a failure to write it is of no account.
void LegacyJobStore::addPlaceholder() {
    if (records.count("") != 0)
        return;
    JobRecord placeholder(state.uploadPath.string());
    placeholder.writeState(States::invalid);
    placeholder.generation = generation;
    records.emplace("", std::move(placeholder));
}

void LegacyJobStore::loadTimings(std::uint32_t id, const std::string& text) {
    picojson::value value;
    std::string error;
    if (!OstrandHub::parseJsonPrefix(text, value, error) || !value.is<picojson::object>())
        return;
    if (!value.get("added").is<double>())
        return;
    setAddedTime(id, value.get("added").get<double>());
    if (!value.get("timings").is<picojson::array>())
        return;
    for (const picojson::value& element : value.get("timings").get<picojson::array>()) {
        if (!element.is<picojson::object>())
            continue;
        const picojson::value& proc = element.get("proc");
        const picojson::value& done = element.get("done");
        if (proc.is<double>() && done.is<double>())
            addTiming(id, JobRecord::Timing(proc.get<double>(), done.get<double>()));
    }
}

} // namespace OstrandService

#include "providers/legacy/LegacyJobStore.h"

#include "framework/JobFolder.h"
#include "platform/hub/AtomicFile.h"
#include "platform/hub/MessageLog.h"
#include "providers/legacy/LegacyState.h"

#include <boost/filesystem.hpp>

namespace OstrandService {

using Guard = Kestrel::MutexGuard;
namespace States = LegacyJobStates;

namespace {

bool mayComeBack(LegacyJobState state) {
    return state == States::error || state == States::deleted || state == States::canceled;
}

/// Throws where a folder can't be made; existing ones are no error.
void makeFolders(const std::string& folder) {
    for (const char* part : {"", "/binGeo", "/imgGeo", "/popGeo"})
        boost::filesystem::create_directory(folder + part);
}

} // namespace

LegacyJobStore::LegacyJobStore(const LegacyState& settings) : state(settings) {
    begin();
}

LegacyJobStore::~LegacyJobStore() = default;

// The first key is no job's, so that ids begin at 1.
void LegacyJobStore::begin() {
    records.clear();
    keys.assign(1, "ALREADY EXISTS");
    deleteQueue.clear();
    cursor = numJobs = finishedCount = errorCount = 0;
}

void LegacyJobStore::clear() {
    const Guard guard(mutex);
    ++generation;
    begin();
}

const JobRecord* LegacyJobStore::find(std::uint32_t id) const {
    // The first key is no job's, whatever uid a client thinks of.
    if (id == 0 || id >= keys.size())
        return nullptr;
    const auto found = records.find(keys[id]);
    return found == records.end() ? nullptr : &found->second;
}

JobRecord* LegacyJobStore::find(std::uint32_t id) {
    return const_cast<JobRecord*>(static_cast<const LegacyJobStore*>(this)->find(id));
}

JobRecord* LegacyJobStore::findCurrent(const JobRecord& taken) {
    const auto found = records.find(taken.getUid());
    return taken.generation == generation && found != records.end() ? &found->second : nullptr;
}

std::uint32_t LegacyJobStore::submitJob(const JobRecord& record, const std::string& text) {
    const Guard guard(mutex);
    const auto known = records.find(record.getUid());
    if (known != records.end() && !mayComeBack(known->second.state)) {
        // Reads like a failure, though the client gets the answer of a success.
        MessageLog::the()->log("ADD job: failed, already exists: " +
                               std::to_string(known->second.id));
        return known->second.id;
    }
    JobRecord& stored = known != records.end() ? known->second : enter(record);
    // A worker is to come by this job again, and by all open ones behind it.
    if (stored.id - 1 < cursor)
        cursor = stored.id - 1;
    try {
        makeFolders(stored.folder);
    } catch (...) {
        stored.state = States::error;
        throw;
    }
    if (known == records.end() && !record.cookies.empty())
        JobFolder::writeCookies(stored.folder, record.cookies);
    ++numJobs;
    stored.addedTime = state.stopWatch.read();
    stored.commandLine = "Not Run Yet";
    // The description comes last: a folder without it is none to the reload, and never an
    // unfinished job taken for a failed one.
    JobFolder::markPartial(stored.folder);
    stored.writeState(States::open);
    JobFolder::writeJobId(stored.folder, stored.id, state.serviceId());
    OstrandHub::writeFileAtomically(stored.folder + "/.meta", text);
    MessageLog::the()->log("ADD job: success, ID: " + std::to_string(stored.id));
    return stored.id;
}

JobRecord& LegacyJobStore::enter(const JobRecord& record) {
    JobRecord entered(record);
    entered.id = static_cast<std::uint32_t>(keys.size());
    entered.folder = state.cachePath + "/" + std::to_string(entered.id);
    entered.generation = generation;
    keys.push_back(record.getUid());
    return records.emplace(record.getUid(), entered).first->second;
}

bool LegacyJobStore::requestDelete(std::uint32_t id) {
    const Guard guard(mutex);
    JobRecord* const record = find(id);
    if (!record)
        return false;
    switch (record->state) {
    case States::closed:
    case States::error:
        record->writeState(States::markedForDeletion);
        deleteQueue.push_back(id);
        return true;
    case States::open:
        // It keeps its place and its marker; the cursor passes it by.
        record->writeState(States::canceled);
        return true;
    default:
        return false;
    }
}

std::uint32_t LegacyJobStore::takeDeleteRequest() {
    const Guard guard(mutex);
    if (deleteQueue.empty())
        return 0;
    const std::uint32_t id = deleteQueue.front();
    deleteQueue.pop_front();
    return id;
}

std::uint32_t LegacyJobStore::takeNextOpenJob() {
    const Guard guard(mutex);
    while (cursor + 1 < keys.size()) {
        ++cursor;
        const JobRecord* const record = find(cursor);
        if (record && record->state == States::open)
            return cursor;
    }
    return 0;
}

bool LegacyJobStore::setJobState(const JobRecord& taken, LegacyJobState newState) {
    const Guard guard(mutex);
    if (JobRecord* const record = findCurrent(taken)) {
        count(record->state, newState);
        record->writeState(newState);
    }
    return true;
}

void LegacyJobStore::count(LegacyJobState oldState, LegacyJobState newState) {
    const bool wasOpen = oldState == States::open || oldState == States::inProcess;
    const bool failed = newState == States::error || newState == States::terminated;
    if (wasOpen && newState == States::closed)
        ++finishedCount;
    else if (wasOpen && failed)
        ++errorCount;
    else if (oldState == States::closed && newState == States::open)
        --finishedCount;
    else if ((oldState == States::error || oldState == States::terminated) &&
             newState == States::open)
        --errorCount;
}

void LegacyJobStore::setCommandLine(const JobRecord& taken, const std::string& text) {
    const Guard guard(mutex);
    if (JobRecord* const record = findCurrent(taken))
        record->commandLine = text;
}

void LegacyJobStore::addTiming(const JobRecord& taken, const JobRecord::Timing& timing) {
    const Guard guard(mutex);
    if (JobRecord* const record = findCurrent(taken))
        record->timings.push_back(timing);
}

void LegacyJobStore::clearPartial(const JobRecord& taken, const std::string& folder) const {
    const Guard guard(mutex);
    if (taken.generation == generation)
        JobFolder::clearPartial(folder);
}

} // namespace OstrandService

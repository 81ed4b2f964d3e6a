#include "providers/legacy/LegacyJobStore.h"

#include "framework/JobFolder.h"
#include "platform/hub/AtomicFile.h"
#include "platform/hub/MessageLog.h"
#include "providers/legacy/LegacyState.h"

#include <boost/filesystem.hpp>
#include <stdexcept>

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
    unsaved.clear();
    unfinished.clear();
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
    if (taken.generation != generation || found == records.end())
        return nullptr;
    return taken.admissions == found->second.admissions ? &found->second : nullptr;
}

// The log has a disk of its own, which may be slow: nothing is logged with the lock held.
std::uint32_t LegacyJobStore::submitJob(const JobRecord& record, const std::string& text) {
    const auto [id, added] = admit(record, text);
    // The second reads like a failure, though the client gets the answer of a success.
    MessageLog::the()->log(
        (added ? "ADD job: success, ID: " : "ADD job: failed, already exists: ") +
        std::to_string(id));
    return id;
}

/// The job's id, and whether it was taken in.
std::pair<std::uint32_t, bool> LegacyJobStore::admit(const JobRecord& record,
                                                     const std::string& text) {
    const Guard guard(mutex);
    const auto known = records.find(record.getUid());
    const bool isNew = known == records.end();
    if (!isNew && !mayComeBack(known->second.state))
        return {known->second.id, false};
    JobRecord& stored = isNew ? enter(record) : known->second;
    // A worker is to come by this job again, and by all open ones behind it.
    if (stored.id - 1 < cursor)
        cursor = stored.id - 1;
    const LegacyJobState before = isNew ? States::error : stored.state;
    try {
        writeFolder(stored, isNew, text);
    } catch (...) {
        // It may be tried again, and has not run.
        save(stored, before);
        JobFolder::clearPartial(stored.folder);
        throw;
    }
    ++numJobs;
    ++stored.admissions;
    stored.isHandedOut = false;
    stored.addedTime = state.stopWatch.read();
    stored.commandLine = "Not Run Yet";
    return {stored.id, true};
}

// The description comes last: a folder without it is none to the reload, and never an unfinished
// job taken for a failed one. A job that has none would not be known after a restart, so it is not
// taken; one that comes back has its old one still.
void LegacyJobStore::writeFolder(JobRecord& stored, bool isNew, const std::string& text) {
    makeFolders(stored.folder);
    if (isNew && !stored.cookies.empty())
        JobFolder::writeCookies(stored.folder, stored.cookies);
    // Without the marker, clients are given half of a result. Without a state, a new job would be a
    // failed one behind a restart; one that comes back gets it as soon as the disk takes it.
    const std::string meta = stored.folder + "/.meta";
    const bool marked = JobFolder::markPartial(stored.folder);
    save(stored, States::open);
    if (!marked || (unsaved.count(stored.id) != 0 && !JobFolder::exists(meta)))
        throw std::runtime_error("job folder not writable: " + stored.folder);
    JobFolder::writeJobId(stored.folder, stored.id, state.serviceId());
    if (!OstrandHub::writeFileAtomically(meta, text) && !JobFolder::exists(meta))
        throw std::runtime_error("job folder not writable: " + stored.folder);
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
        save(*record, States::markedForDeletion);
        deleteQueue.push_back(id);
        return true;
    case States::open:
        // It keeps its place and its marker; the cursor passes it by.
        save(*record, States::canceled);
        return true;
    default:
        return false;
    }
}

std::optional<LegacyJobStore::Taken> LegacyJobStore::takeDeleteRequest() {
    const Guard guard(mutex);
    if (deleteQueue.empty())
        return std::nullopt;
    const std::uint32_t id = deleteQueue.front();
    deleteQueue.pop_front();
    return Taken{id, *find(id)};
}

std::optional<LegacyJobStore::Taken> LegacyJobStore::takeNextOpenJob() {
    const Guard guard(mutex);
    while (cursor + 1 < keys.size()) {
        ++cursor;
        JobRecord* const record = find(cursor);
        if (!record || record->state != States::open || record->isHandedOut)
            continue;
        record->isHandedOut = true;
        return Taken{cursor, *record};
    }
    return std::nullopt;
}

bool LegacyJobStore::setJobState(const JobRecord& taken, LegacyJobState newState) {
    const Guard guard(mutex);
    if (JobRecord* const record = findCurrent(taken)) {
        count(record->state, newState);
        save(*record, newState);
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

} // namespace OstrandService

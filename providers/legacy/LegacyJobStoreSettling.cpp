#include "framework/JobFolder.h"
#include "providers/legacy/LegacyJobStore.h"

#include <iterator>

namespace OstrandService {

using Guard = Kestrel::MutexGuard;
namespace States = LegacyJobStates;

namespace {

constexpr int mostFailures = 16; ///< in one pass: a disk that takes nothing is not asked for all

} // namespace

/// The state that is told is the record's, whatever the disk says. A folder in the place of the
/// file is no trouble of the disk that goes by: nothing waits for it.
void LegacyJobStore::save(JobRecord& record, LegacyJobState newState) {
    if (record.writeState(newState) || JobFolder::isFolder(record.folder + "/.status"))
        unsaved.erase(record.id);
    else
        unsaved.insert(record.id);
}

// Who finds the marker gone finds the state on disk.
void LegacyJobStore::clearPartial(const JobRecord& taken, const std::string& folder) {
    const Guard guard(mutex);
    if (!findCurrent(taken))
        return;
    if (unsaved.count(taken.id) == 0 && JobFolder::clearPartial(folder))
        unfinished.erase(taken.id);
    else
        unfinished[taken.id] = folder;
}

void LegacyJobStore::settle() {
    const Guard guard(mutex);
    int failures = 0;
    for (auto id = unsaved.begin(); id != unsaved.end() && failures < mostFailures;) {
        const bool settled = settleState(*id);
        failures += settled ? 0 : 1;
        id = settled ? unsaved.erase(id) : std::next(id);
    }
    failures = 0;
    for (auto entry = unfinished.begin(); entry != unfinished.end() && failures < mostFailures;) {
        const bool settled = settleMarker(entry->first, entry->second);
        failures += settled ? 0 : 1;
        entry = settled ? unfinished.erase(entry) : std::next(entry);
    }
}

/// True if nothing is left to do; so too where the folder has gone.
bool LegacyJobStore::settleState(std::uint32_t id) {
    JobRecord* const record = find(id);
    return !record || record->writeState(record->state) || !JobFolder::mayExist(record->folder);
}

/// The same. A job that came back needs its marker, and removes it at its end.
bool LegacyJobStore::settleMarker(std::uint32_t id, const std::string& folder) {
    const JobRecord* const record = find(id);
    if (!record || record->state == States::open || record->state == States::inProcess)
        return true;
    return unsaved.count(id) == 0 && JobFolder::clearPartial(folder);
}

} // namespace OstrandService

#pragma once

#include "platform/kestrel/Mutex.h"
#include "providers/legacy/JobRecord.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace OstrandService {

struct LegacyState;

/// The legacy provider's one store of jobs, and the files that make it survive a restart.
///
/// A job is found by its uid; its number, the id, is its place in a vector of keys, which begins at
/// 1. Workers find work by a cursor that walks along that vector. Any thread may call any operation
/// (loadJob and what it uses apart): each takes the one mutex for its whole duration, its writes to
/// a job's folder included, so that ids and folders come in one order. An id or uid without a
/// record is answered as a job in state 8, and a change to it is dropped.
///
/// clear() begins a new generation. What a worker then still tells of a record of the old one is
/// dropped: its id, uid and folder may by now be another job's. So it is with a job that came back:
/// a client may send it again as soon as its state tells of the end, before the worker that ran it
/// is done with it.
class LegacyJobStore {
public:
    /// `settings` outlives the store.
    explicit LegacyJobStore(const LegacyState& settings);
    ~LegacyJobStore();
    LegacyJobStore(const LegacyJobStore&) = delete;
    LegacyJobStore& operator=(const LegacyJobStore&) = delete;

    /// Takes a job in, or finds the one with the same uid, and returns its id. When this returns
    /// the folder tells of it. A job that failed, was deleted or canceled comes back with its old
    /// description, only `text` is new. Where the folder can't be made or would not tell of a job
    /// that waits, this throws; a new job is then in state 3, one that was to come back in the
    /// state it had.
    std::uint32_t submitJob(const JobRecord& record, const std::string& text);

    /// Marks a job in state 2 or 3 for deletion by a worker, cancels one in state 0. False, and
    /// nothing happens, for any other.
    bool requestDelete(std::uint32_t id);

    /// A job taken by a worker: its id and a copy of its record, of one and the same moment. The
    /// record's own id may be another one, where two folders of an earlier process share a uid.
    struct Taken {
        std::uint32_t id;
        JobRecord record;
    };

    /// The first job that waits for deletion, taken from the queue; nothing where none does.
    std::optional<Taken> takeDeleteRequest();

    /// The next job in state 0 behind the cursor, which moves on to it; nothing where there is
    /// none. No two callers get the same one, also where the cursor was set back before the first
    /// has begun with it.
    std::optional<Taken> takeNextOpenJob();

    JobRecord getJobRecord(std::uint32_t id) const;
    std::string getKey(std::uint32_t id) const;
    std::vector<std::string> getKeys() const; ///< all, from id 1 on
    std::string getCommandLine(const std::string& uid) const;
    LegacyJobState getJobState(const std::string& uid) const;
    double getAddedTime(std::uint32_t id) const;

    void setAddedTime(std::uint32_t id, double time);
    void addTiming(std::uint32_t id, const JobRecord::Timing& timing);

    /// Changes of a job that a worker has taken; dropped where the record is of an older
    /// generation, or of a time before the job came back.
    void setCommandLine(const JobRecord& taken, const std::string& text);
    void addTiming(const JobRecord& taken, const JobRecord::Timing& timing);
    /// Also keeps the counters and ".status".
    bool setJobState(const JobRecord& taken, LegacyJobState newState);
    /// Writes the times of the record to the file `path`.
    void writeTimings(const JobRecord& taken, const std::string& path) const;
    /// Removes ".partial" from `folder`, as soon as ".status" tells the end.
    void clearPartial(const JobRecord& taken, const std::string& folder);

    /// Writes what the disk did not take before: states, and the ends of ".partial". Ends early
    /// where it still takes nothing.
    void settle();

    std::uint32_t maxJobId() const; ///< highest id in use; 0 where there is none
    std::uint32_t numJobsTotal() const;
    std::uint32_t numJobsFinished() const; ///< ended well or badly
    std::uint32_t numJobsFailed() const;
    std::uint32_t numJobsOpen() const; ///< total less finished; wraps where a job counts twice

    /// Takes a job of an earlier process in, from its ".meta" text and folder. Before the workers
    /// start.
    bool loadJob(std::uint32_t id, const std::string& metaText, const std::string& folderPath);

    /// Takes the times of a loaded job from the text of ".timings"; stops silently where it has
    /// another form.
    void loadTimings(std::uint32_t id, const std::string& text);

    /// Forgets all jobs; ids begin at 1 again.
    void clear();

private:
    std::pair<std::uint32_t, bool> admit(const JobRecord& record, const std::string& text);
    void writeFolder(JobRecord& stored, bool isNew, const std::string& text);
    const JobRecord* find(std::uint32_t id) const;
    JobRecord* find(std::uint32_t id);
    JobRecord* findCurrent(const JobRecord& taken);
    void save(JobRecord& record, LegacyJobState newState);
    bool settleState(std::uint32_t id);
    bool settleMarker(std::uint32_t id, const std::string& folder);
    void begin();
    JobRecord& enter(const JobRecord& record);
    void addPlaceholder();
    void count(LegacyJobState oldState, LegacyJobState newState);

    const LegacyState& state;

    mutable Kestrel::Mutex mutex;             ///< guards everything below
    std::map<std::string, JobRecord> records; ///< by uid
    std::vector<std::string> keys;            ///< uid by id; element 0 is no job's
    std::deque<std::uint32_t> deleteQueue;    ///< ids waiting for a worker to delete their results
    std::set<std::uint32_t> unsaved;          ///< ids whose ".status" does not tell their state
    std::map<std::uint32_t, std::string> unfinished; ///< folders that still have ".partial", by id
    std::uint32_t cursor = 0;                        ///< id last handed out by takeNextOpenJob()
    std::uint32_t numJobs = 0;       ///< additions since the start or the last clearing
    std::uint32_t finishedCount = 0; ///< jobs ended well
    std::uint32_t errorCount = 0;    ///< jobs ended badly
    std::uint32_t generation = 0;    ///< raised by clear()
};

} // namespace OstrandService

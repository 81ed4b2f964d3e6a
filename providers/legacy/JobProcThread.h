#pragma once

#include "platform/kestrel/Thread.h"
#include "providers/legacy/LegacyJobStore.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace OstrandService {

/// Worker of the legacy provider: takes jobs and deletions from the store, deletions first, one at
/// a time, until it is told to stop. Several work on one store.
class JobProcThread : public Kestrel::Thread {
public:
    JobProcThread();
    ~JobProcThread() override;

    /// Starts the thread; it works until requestStop().
    void begin();

    /// Ends the loop behind the job or the pause in hand; join() then waits for that.
    void requestStop() { running = false; }

protected:
    int run() override;

private:
    void loop();
    void processJob(const LegacyJobStore::Taken& job);
    void processDeletion(const LegacyJobStore::Taken& job);
    void deleteJobFiles(const JobRecord& record, const std::string& folder);
    void log(const std::string& text, std::uint32_t id) const;

    const std::int32_t number; ///< stands in front of the thread's log lines
    std::atomic<bool> running{false};
};

} // namespace OstrandService

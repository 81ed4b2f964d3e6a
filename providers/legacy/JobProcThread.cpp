#include "providers/legacy/JobProcThread.h"

#include "framework/JobFolder.h"
#include "platform/hub/MessageLog.h"
#include "providers/legacy/FettleRun.h"
#include "providers/legacy/LegacyState.h"
#include "providers/legacy/ProcessRun.h"

#include <boost/filesystem.hpp>
#include <exception>
#include <pthread.h>
#include <unistd.h>

namespace OstrandService {

namespace {

constexpr unsigned long pauseMillis = 100;     ///< taken on every pass
constexpr unsigned long recoveryMillis = 1000; ///< before the loop is entered again

std::int32_t nextNumber() {
    static std::atomic<std::int32_t> last{0};
    return ++last;
}

std::string folderOf(std::uint32_t id) {
    return LegacyState::current->cachePath + "/" + std::to_string(id) + "/";
}

/// Removes a file or a link, not a folder: a folder among the results stays, empty or not.
void removeFile(const std::string& path) {
    ::unlink(path.c_str());
}

} // namespace

JobProcThread::JobProcThread() : number(nextNumber()) {}

JobProcThread::~JobProcThread() = default;

// The flag is set before the thread begins and not by the thread: one that is told to stop before
// it has come to its loop must not miss it.
void JobProcThread::begin() {
    running = true;
    start();
}

int JobProcThread::run() {
    // Who looks at the process can tell the workers from the threads of the web servers.
    ::pthread_setname_np(::pthread_self(), "job worker");
    while (running) {
        try {
            loop();
        } catch (const std::exception& error) {
            // A damaged job folder, or no memory: one job suffers, the worker goes on.
            MessageLog::the()->log(std::to_string(number) + " - worker failed: " + error.what());
            if (running)
                sleep(recoveryMillis);
        }
    }
    return 0;
}

void JobProcThread::loop() {
    LegacyJobStore& store = *LegacyState::current->store;
    while (running) {
        if (const auto marked = store.takeDeleteRequest())
            processDeletion(*marked);
        else if (const auto open = store.takeNextOpenJob())
            processJob(*open);
        sleep(pauseMillis);
    }
}

void JobProcThread::processJob(const LegacyJobStore::Taken& job) {
    LegacyJobStore& store = *LegacyState::current->store;
    const auto& [id, record] = job;
    log(" - PROC job: aquired, ID: ", id);
    const std::string folder = folderOf(id);
    bool success = false;
    if (record.JobKind == TranscoderJobDesc::toolJob)
        success = runFettleJob(record, id, folder);
    else if (record.JobKind == TranscoderJobDesc::commandBatch)
        success = runCommandBatch(record, id, folder);
    try {
        store.clearPartial(record, folder);
        store.writeTimings(record, folder + "/" + ".timings");
    } catch (...) {
        // The result of the run stands.
    }
    // "fettle" also where a batch failed.
    log(success ? " - PROC job: finished, ID: " : " - PROC job: failed, fettle error, ID: ", id);
}

void JobProcThread::processDeletion(const LegacyJobStore::Taken& job) {
    const auto& [id, record] = job;
    log(" - DELETE job: aquired, ID: ", id);
    deleteJobFiles(record, folderOf(id));
    log(" - DELETE job: finished, ID: ", id);
}

// Throws where one of the three folders is gone; the job then stays marked.
void JobProcThread::deleteJobFiles(const JobRecord& record, const std::string& folder) {
    const std::string main = folder + "/" + outputIndexName(record);
    if (JobFolder::exists(main))
        removeFile(main);
    for (const char* part : {"binGeo", "imgGeo", "popGeo"}) {
        for (const auto& entry : boost::filesystem::directory_iterator(folder + "/" + part))
            removeFile(entry.path().string());
    }
    LegacyState::current->store->setJobState(record, LegacyJobStates::deleted);
}

void JobProcThread::log(const std::string& text, std::uint32_t id) const {
    MessageLog::the()->log(std::to_string(number) + text + std::to_string(id));
}

} // namespace OstrandService

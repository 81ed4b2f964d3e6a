#pragma once

#include "framework/ServiceJob.h"
#include "platform/hub/TranscoderJobDesc.h"

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <picojson.h>
#include <string>

namespace Portico::ProtocolHTTP {
class Reply;
}

namespace OstrandService {

/// A job of the transcoder: a parsed description that becomes a folder on disk and a list of
/// command lines. The folder tells of the job after a restart, and the empty file ".partial" in it
/// tells the result server that the job is not finished.
///
/// `sourceText` is the provider's id. Touched by web threads and by the worker that runs it, or by
/// two workers where it was queued twice.
class ServiceTranscoderJob final : public ServiceJob<TranscoderJobDesc> {
public:
    /// Makes a job from a JSON object; null where the description is refused.
    static boost::shared_ptr<ServiceTranscoderJob> create(const picojson::value& v,
                                                          const std::string& providerId);

    /// Writes the state to ".status" and stores it, in one step: the file always tells the last
    /// state, whichever threads set it, and nobody is told of one that is not on disk, but where
    /// the disk does not take it: see settle().
    void setState(JobState newState) override;

    /// Appends the command lines of a command batch, as the client wrote them; none for other jobs.
    /// For a job whose folder does not tell of it, lines that can't be started, so that it fails.
    void getCommands(Commands& commands) override;

    /// The description's variables, the filtered cookies and the delivery host, where set.
    void getEnvironment(EnvironmentList& env) override;

    /// Makes the folder with ".meta", the folders for the tools' results, and ".cookie". Reports
    /// nothing.
    void prepare(const std::string& basePath) override;

    /// Writes the file "jobId": the id, "@" and the provider's id.
    void writeJobId();

    /// What a folder holds of a job that waits: the marker ".partial", then the state OPEN, beside
    /// the description. Where the disk doesn't take all of it the job is to fail and not to run: a
    /// restart would not know it, or its clients would be given half of a result. False then.
    bool openFolder();

    /// Makes the file ".partial" for one more run. False where it isn't there then.
    bool markPartial();

    /// Counts one more run of a folder that is marked already, or is to stay as it is.
    void expectRun();

    /// The end of a run: ".partial" goes when no other run is to come. False where settle() is left
    /// to do.
    bool clearPartial();

    /// Writes what the end of a run could not write, the state first and then the end of
    /// ".partial". True when nothing is left to do.
    bool settle();

    /// Keeps of a "Cookie" header what the cookie whitelist lets through. An empty header changes
    /// nothing: a job that runs again keeps the cookies of its former run.
    void setCookies(const std::string& header);

    void setDeliveryHost(const std::string& host);

    /// Name of the result file: "index." and the extension of the job's format.
    std::string resultFileName() const;

    /// Fills in the answer to a submission; `base` is the URL of the result server.
    void writeJobReply(Portico::ProtocolHTTP::Reply& reply, const std::string& base) const;

    /// Between these two the thread that brought the job makes its folder and queues it; another
    /// one that was given the same job waits in awaitAcceptance() until that is done, so that no
    /// answer speaks of a job that is not on disk.
    void beginAcceptance();
    void endAcceptance();
    void awaitAcceptance();

private:
    explicit ServiceTranscoderJob(const std::string& providerId);
    ~ServiceTranscoderJob() = default;
    static void destroy(ServiceTranscoderJob* job);

    bool settleLocked();
    bool saveLocked(JobState saved) const;

    std::mutex stateMutex; ///< guards what follows, held over writing the state and the marker
    bool isSaved = true;   ///< ".status" tells the state
    std::uint32_t unfinishedRuns = 0; ///< queued or running

    std::atomic<bool> isStored{true}; ///< the folder tells of the job that waits

    mutable std::mutex textMutex; ///< guards the two texts; never held over a file operation
    std::string cookieHeader;     ///< whitelisted part of the "Cookie" header
    std::string deliveryHost;     ///< base URL of an answer that follows the client's own host

    std::mutex acceptanceMutex; ///< guards `accepted`
    std::condition_variable acceptanceEnded;
    bool accepted = true;
};

} // namespace OstrandService

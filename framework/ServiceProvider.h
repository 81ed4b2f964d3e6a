#pragma once

#include "framework/FolderClaim.h"
#include "framework/JobQueue.h"
#include "platform/hub/SystemInfo.h"

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <iosfwd>
#include <picojson.h>
#include <string>
#include <vector>

class OstrandHubServiceProvider;
namespace boost {
class thread;
}
namespace boost::program_options {
class options_description;
class variables_map;
} // namespace boost::program_options
namespace Portico::ProtocolHTTP {
class Request;
class Reply;
} // namespace Portico::ProtocolHTTP

namespace OstrandService {

/// Base of every provider: the lifecycle that the host drives, and what all providers share.
///
/// The host calls, on the main thread and in this order, setupLogging(), addOptions(), init(),
/// addPages(), start(), update() every 500 ms, shutdown(), and then destroys this base part (the
/// destructor is not virtual). Page handlers run on web threads, several at a time; their result
/// true asks the dispatcher for the CORS headers. An override of a lifecycle operation calls the
/// base operation at the point that suits it.
class ServiceProvider {
public:
    using Request = Portico::ProtocolHTTP::Request;
    using Reply = Portico::ProtocolHTTP::Reply;
    using Job = boost::shared_ptr<ServiceJobBase>;

    /// The defaults of `log_path` and `cache_path`.
    ServiceProvider(const std::string& logFolder, const std::string& cacheFolder);
    ~ServiceProvider();
    ServiceProvider(const ServiceProvider&) = delete;
    ServiceProvider& operator=(const ServiceProvider&) = delete;

    virtual void addOptions(boost::program_options::options_description& desc);
    virtual void setupLogging();
    /// Makes the folders and the hub client and fixes the provider's id. False, with a line on
    /// standard output, where a folder can't be made.
    virtual bool init(const boost::program_options::variables_map& vm);
    virtual void addPages();
    /// Starts as many workers as `workerThreads` has entries and gives the hub client its settings.
    /// Throws std::runtime_error where there are no more threads to be had; those that were started
    /// are ended by shutdown().
    virtual void start();
    virtual void update();
    /// Deregisters, then stops the workers and waits for the tools that they run. Jobs that still
    /// wait are left as they are.
    virtual void shutdown();
    virtual bool handleFrontPage(const Request& request, Reply& reply) = 0;
    virtual bool handleJobRequest(const Request& request, Reply& reply);
    /// Accepts one job description, a JSON object, and fills in the answer.
    virtual bool addJob(const Request& request, const picojson::value& job, Reply& reply) = 0;
    virtual bool listJobs(const Request& request, Reply& reply);
    virtual bool deleteJob(const Request& request, Reply& reply) = 0;
    virtual bool getJob(const Request& request, Reply& reply) = 0;
    virtual bool listJobsHtml(const Request& request, Reply& reply) = 0;
    virtual bool listJobsJson(const Request& request, Reply& reply) = 0;
    /// The body of every worker thread.
    virtual void workerLoop();
    /// Counts a job that has been run. Called by the worker.
    virtual void jobFinished(boost::shared_ptr<ServiceJobBase>& job);
    /// Called by a worker behind the cleanup() of a job that was stopped. Does nothing here.
    virtual void jobRemoved(boost::shared_ptr<ServiceJobBase>& job);

    /// GET and DELETE of one job.
    bool handleJobResource(const Request& request, Reply& reply);

    /// Writes the provider's own object of the registration document up to the line "JobUri",
    /// without a comma or line end behind it. No value is escaped.
    void writeProviderInfo(std::ostream& out, const std::string& service);

    /// Writes the registration document up to that line.
    void writeRegistrationHead(std::ostream& out, const std::string& service);

    /// Closes the registration document.
    void writeRegistrationTail(std::ostream& out);

    bool regByMulticast = false;               ///< `mcastreg`: register by multicast
    std::string regAddress = "localhost:8080"; ///< `ipreg`: hub for direct registration
    std::string logPath;                       ///< `log_path`
    std::string baseCachePath;                 ///< cache root; fixed by init()
    std::string cachePath;                     ///< `cache_path`; with "/<providerId>" after init()
    SystemInfo systemInfo;                     ///< load recorder; main thread only
    boost::shared_ptr<OstrandHubServiceProvider> hubProvider; ///< made by init(), main thread only
    std::atomic<std::uint32_t> numJobs{0};         ///< jobs accepted and not yet finished; wraps
    std::atomic<std::uint32_t> numJobsFinished{0}; ///< jobs that ended in any other state
    std::atomic<std::uint32_t> numJobsFailed{0};   ///< jobs that ended in ERROR or TERMINATED
    JobQueue jobQueue;                             ///< jobs waiting for a worker
    JobQueue secondaryQueue;                       ///< always empty in the framework
    boost::mutex jobsMutex; ///< held while a job is accepted; taken before the queue's own mutex
    std::vector<boost::thread*> workerThreads; ///< sized by the subclass before start(); owned
    std::atomic<bool> running{false};          ///< workers loop while this is true
    bool shortUuid = false;                    ///< `shortuuid`: shortened identifier
    std::string providerId; ///< `providerid`, else the hub client's identifier after init()

private:
    bool makeFolders();
    void addJobBatch(const Request& request, const picojson::array& batch, Reply& reply);
    void workOn(Job& job);

    FolderClaim cacheClaim; ///< on `cachePath`, from init() on
};

} // namespace OstrandService

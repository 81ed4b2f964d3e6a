#pragma once

#include "framework/ServiceProvider.h"
#include "platform/portico/ThreadedWebServer.h"
#include "providers/transcoder/UnsettledJobs.h"

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace OstrandService {

class ServiceTranscoderJob;

/// The provider "TranscoderService": jobs described in JSON are run as ready-made command lines,
/// and their results are cached by the job's uid.
///
/// A job has two names: its uid comes with the description and makes two submissions one job; its
/// id is its place in the job table, the name of its folder, and a part of every URI handed out.
/// Results leave through a second web server on the port behind the host's.
class TranscoderServiceProvider : public ServiceProvider {
public:
    TranscoderServiceProvider();
    ~TranscoderServiceProvider() = default;

    void addOptions(boost::program_options::options_description& desc) override;
    void setupLogging() override;
    bool init(const boost::program_options::variables_map& vm) override;
    void addPages() override;
    void start() override;
    /// Also tries again what the disk did not take at the ends of jobs.
    void update() override;
    void shutdown() override;
    bool handleFrontPage(const Request& request, Reply& reply) override;
    bool addJob(const Request& request, const picojson::value& value, Reply& reply) override;
    bool deleteJob(const Request& request, Reply& reply) override;
    bool getJob(const Request& request, Reply& reply) override;
    bool listJobsHtml(const Request& request, Reply& reply) override;
    bool listJobsJson(const Request& request, Reply& reply) override;
    void jobFinished(boost::shared_ptr<ServiceJobBase>& job) override;
    void jobRemoved(boost::shared_ptr<ServiceJobBase>& job) override;
    virtual bool frontPageJson(const Request& request, Reply& reply);
    virtual bool frontPageHtml(const Request& request, Reply& reply);
    /// Tells in one answer how far the jobs of a list of URIs have come. Throws
    /// boost::bad_lexical_cast for a URI of this provider whose id is no number.
    virtual bool updateJobStates(const Request& request, Reply& reply);
    /// Changes the delivery address or clears the cache, at run time.
    virtual bool handleConfig(const Request& request, Reply& reply);

private:
    class DeliveryWebPage;
    friend class TranscoderServiceProviderTest;
    using TranscoderJob = boost::shared_ptr<ServiceTranscoderJob>;

    // Submission.
    bool insertOrFind(TranscoderJob& job);
    void queueJob(const TranscoderJob& job, const std::string& cookie);
    std::string replyBase(const Request& request, const TranscoderJob& job) const;
    int stateCode(const std::string& uri);
    std::vector<TranscoderJob> listedJobs();

    // Configuration.
    bool loadConfigFile();
    std::string defaultDeliveryPort() const;
    void reconfigureDelivery(const picojson::object& config);
    std::string getDeliveryUrl() const;
    void writeRegistrationEntries(std::ostream& out) const;

    // Reload and clearing of the cache.
    void loadOldJobs();
    bool loadJob(std::uint32_t id, const std::string& metaText, const std::string& folder);
    bool loadFolder(std::int32_t id, const std::string& folder);
    bool isIdle();
    void clearCache();
    void emptyTables();
    void removeJobFolders();
    void releaseTables();

    std::vector<TranscoderJob> jobs;               ///< by id; element 0 stays null
    std::map<std::string, std::uint32_t> jobIndex; ///< uid to id
    boost::mutex jobListMutex;                     ///< guards `jobs` and `jobIndex`
    std::string fettlePath = "fettle.exe";         ///< `fettle_path`: accepted, of no effect here
    std::string deliveryUrl;                       ///< `delivery_service`: URL of the result server
    std::uint16_t deliveryPort = 0; ///< `delivery_port`: port told to clients; 0: the real one
    std::uint32_t workerCount = 3;  ///< `worker_threads`
    std::string externalIp;         ///< `external_ip`: what "localip" stands for in "/config"
    std::string deliveryCert;       ///< `delivery-cert`
    std::string deliveryKey;        ///< `delivery-key`
    bool replyOrigin = false; ///< `replyorigin`: answers point to the host that the client used
    Portico::ThreadedWebServer deliveryServer;

    mutable std::mutex deliveryUrlMutex; ///< guards `deliveryUrl` once the servers run
    /// Submissions between their look at the table and their place in the queue, and jobs between
    /// their count as finished and the removal of their marker. The cache is not cleared meanwhile.
    std::atomic<std::uint32_t> transitions{0};
    UnsettledJobs unsettled;
};

} // namespace OstrandService

#pragma once

#include "framework/ServiceProvider.h"
#include "platform/portico/ThreadedWebServer.h"
#include "providers/legacy/LegacyState.h"

#include <cstdint>
#include <memory>
#include <picojson.h>
#include <string>

namespace Config {
class ParamBag;
}

namespace OstrandService {

/// The provider "TranscoderLegacyService": the older transcoder, which composes the optimiser
/// tool's command line itself from named operations.
///
/// It keeps its own way of working beside the framework's: a store of records in place of jobs and
/// queue, threads of its own in place of the workers, and its own table of pages. The framework
/// gives it options, logging, folders, update() and the host's web server.
class TranscoderLegacyServiceProvider : public ServiceProvider {
public:
    TranscoderLegacyServiceProvider();
    ~TranscoderLegacyServiceProvider() = default;

    void addOptions(boost::program_options::options_description& desc) override;
    void setupLogging() override;
    bool init(const boost::program_options::variables_map& vm) override;
    void addPages() override;
    void start() override;
    /// Also tries again what the disk did not take of jobs' states.
    void update() override;
    void shutdown() override;
    bool handleFrontPage(const Request& request, Reply& reply) override;
    bool handleJobRequest(const Request& request, Reply& reply) override;
    /// Not used: jobs enter through handleJobAdd(). False at once.
    bool addJob(const Request& request, const picojson::value& job, Reply& reply) override;
    bool listJobs(const Request& request, Reply& reply) override;
    bool deleteJob(const Request& request, Reply& reply) override;
    bool getJob(const Request& request, Reply& reply) override;
    bool listJobsHtml(const Request& request, Reply& reply) override;
    bool listJobsJson(const Request& request, Reply& reply) override;

private:
    class DeliveryWebPage;
    friend class TranscoderLegacyServiceProviderTest;

    // Submission.
    bool handleJobAdd(const Request& request, Reply& reply);
    bool handleUpdateState(const Request& request, Reply& reply);
    static picojson::value jobTextFromForm(const Config::ParamBag& query, bool urlDecode);

    // Pages.
    bool handleListCached(const Request& request, Reply& reply);
    bool handleListOpen(const Request& request, Reply& reply);
    bool handleSettings(const Request& request, Reply& reply);
    bool handleChangelog(const Request& request, Reply& reply);
    bool handleStatistics(const Request& request, Reply& reply);
    bool handleChartScript(const Request& request, Reply& reply);
    bool handleVersion(const Request& request, Reply& reply);

    // Configuration.
    void makeCacheFolders();
    void loadOldJobs();
    void loadFolder(std::uint32_t id, const std::string& folder);
    std::string defaultDeliveryPort() const;
    bool handleReconfig(const Request& request, Reply& reply);
    void reconfigureJobs(const picojson::value& config);
    void reconfigureDelivery(const picojson::object& config);
    /// The next five with `workersMutex` held. startWorkers() throws std::system_error where the
    /// system gives no more threads; those that were started then stand in the list. The two before
    /// it throw only where there is none even after some seconds.
    void reconfigureThreads(std::int32_t count);
    void startNewWorkers(std::int32_t count);
    void startWorkers(std::int32_t count);
    void stopWorkers();
    void clearCache();
    bool startFirstWorkers();
    void registerWithHub();
    void deregisterFromHub();
    void releaseState();

    std::uint16_t deliveryPort = 0; ///< `delivery_port`: port told to clients; 0: the real one
    std::uint32_t workerThreadsOption = 3;   ///< `worker_threads`
    std::unique_ptr<LegacyState> ownedState; ///< ended by shutdown()
    LegacyState& state;
    Portico::ThreadedWebServer deliveryServer; ///< results and uploads
};

} // namespace OstrandService

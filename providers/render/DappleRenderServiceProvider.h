#pragma once

#include "framework/ServiceProvider.h"
#include "providers/render/RendererSlot.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace OstrandService {

class ServiceDappleRenderJob;

/// The provider "DappleRenderService": lends out renderers. A configuration file declares slots,
/// each an application bound to one display and one port; a job gets the first free slot that fits
/// it, or is turned away. There is one worker for each slot, so that no job waits.
///
/// A slot that was given to a job stays taken until the service restarts, also when the application
/// has ended or was stopped: clients find the job and its outcome where they were told to look. The
/// one exception is a stop that comes between the application's end and the worker's next look.
class DappleRenderServiceProvider final : public ServiceProvider {
public:
    DappleRenderServiceProvider();
    ~DappleRenderServiceProvider() = default;

    /// Reads the configuration file. False without a file that holds JSON, and where the base
    /// operation failed; a file that tells of no renderer gives a provider that refuses all jobs.
    bool init(const boost::program_options::variables_map& vm) override;
    void start() override;
    void shutdown() override;
    bool handleFrontPage(const Request& request, Reply& reply) override;
    bool addJob(const Request& request, const picojson::value& jsonValue, Reply& reply) override;
    /// Stops the job's application. Throws boost::bad_lexical_cast for an id that is no number.
    bool deleteJob(const Request& request, Reply& reply) override;
    /// Tells of a job; with the detail "dapple" the address of its renderer. Throws as deleteJob().
    bool getJob(const Request& request, Reply& reply) override;
    bool listJobsHtml(const Request& request, Reply& reply) override;
    /// Answers with a code alone: there is no list in JSON.
    bool listJobsJson(const Request& request, Reply& reply) override;
    void jobFinished(boost::shared_ptr<ServiceJobBase>& job) override;
    /// Frees the job's slot.
    void jobRemoved(boost::shared_ptr<ServiceJobBase>& job) override;

private:
    friend class DappleRenderServiceProviderTest;
    using RenderJob = boost::shared_ptr<ServiceDappleRenderJob>;

    /// What the path of a request names.
    struct NamedJob {
        Job job;                    ///< null where it names none
        std::uint32_t id = 0;       ///< of the job, and so of its slot
        std::string detail = "all"; ///< what stands behind the id
    };

    bool acquireSlot(const RenderJob& job);
    bool takeSlot(const RenderJob& job, unsigned& found);
    NamedJob findJob(const std::string& uri);
    void dumpSlots() const;

    std::vector<RendererSlot> slots; ///< filled by init(), not changed afterwards
    std::vector<Job> slotJobs;       ///< by slot; null where it is free
    boost::mutex slotMutex; ///< guards `slotJobs`; never held with `jobsMutex`, nor over a stop
};

} // namespace OstrandService

#pragma once

#include "framework/ServiceJob.h"
#include "platform/hub/DappleRenderJobDesc.h"

#include <boost/shared_ptr.hpp>
#include <picojson.h>

namespace OstrandService {

struct RendererSlot;

/// A job that asks for a running renderer: it is given a slot and runs the slot's application for
/// as long as that lasts. Its id is the slot's index. Its folder holds ".meta" and "console.txt"
/// only: a state that nobody reads again is not kept.
class ServiceDappleRenderJob final : public ServiceJob<DappleRenderJobDesc> {
public:
    /// Makes a job from a JSON value; null where the description is refused.
    static boost::shared_ptr<ServiceDappleRenderJob> createJob(const picojson::value& jsonValue);

    /// Appends the one command of the slot's application; none without a slot. Only its first
    /// string, the application, is started: what else it needs stands in the slot's "exe".
    void getCommands(Commands& commands) override;

    /// The slot given to this job, of the provider's list, which outlives the job. Set before the
    /// job is known to any other thread.
    const RendererSlot* slot = nullptr;

private:
    ServiceDappleRenderJob();
    ~ServiceDappleRenderJob() = default;
    static void destroy(ServiceDappleRenderJob* job);
};

} // namespace OstrandService

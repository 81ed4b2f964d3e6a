#include "providers/render/ServiceDappleRenderJob.h"

#include "providers/render/RendererSlot.h"

#include <string>

namespace OstrandService {

ServiceDappleRenderJob::ServiceDappleRenderJob() : ServiceJob<DappleRenderJobDesc>("") {}

void ServiceDappleRenderJob::destroy(ServiceDappleRenderJob* job) {
    delete job;
}

boost::shared_ptr<ServiceDappleRenderJob>
ServiceDappleRenderJob::createJob(const picojson::value& jsonValue) {
    boost::shared_ptr<ServiceDappleRenderJob> job(new ServiceDappleRenderJob,
                                                  &ServiceDappleRenderJob::destroy);
    job->desc.parse(jsonValue);
    job->metaText = jsonValue.serialize();
    if (!job->desc.valid)
        job.reset();
    return job;
}

// Neither port nor display is part of it: renderers are told of both in the application's own
// command line, if at all.
void ServiceDappleRenderJob::getCommands(Commands& commands) {
    if (!slot)
        return;
    commands.push_back({slot->app, slot->classOpt, slot->className, slot->gpuOpt,
                        std::to_string(slot->gpus), slot->cpuOpt, std::to_string(slot->cpus),
                        slot->outOpt, desc.getOutput(), slot->addOpt});
}

} // namespace OstrandService

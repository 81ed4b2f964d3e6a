#include "platform/hub/DappleRenderJobDesc.h"

#include "platform/hub/JobFields.h"

namespace OstrandService {

DappleRenderJobDesc::DappleRenderJobDesc() = default;

DappleRenderJobDesc::~DappleRenderJobDesc() = default;

void DappleRenderJobDesc::parse(const picojson::value& value) {
    valid = false;
    try {
        const JobFields fields(value);
        rendererClass = fields.text("class", "opengl");
        output = fields.text("output", "framebuffer");
        // Only looked at: a renderer runs in the service's own environment.
        fields.texts("environment");
        valid = true;
    } catch (const JobRefused& refused) {
        logRefusal(refused.reason);
    }
}

} // namespace OstrandService

#include "framework/Cors.h"
#include "framework/ServiceProvider.h"
#include "framework/WebPageObject.h"
#include "host/OstrandService.h"
#include "platform/config/Base.h"
#include "platform/hub/Icon.h"
#include "platform/hub/Json.h"
#include "platform/portico/WebPageStatic.h"

namespace OstrandService {

using Page = Portico::WebPageObject<ServiceProvider>;

void ServiceProvider::addPages() {
    const Page front(this, &ServiceProvider::handleFrontPage);
    const Page jobs(this, &ServiceProvider::handleJobRequest);
    const Page job(this, &ServiceProvider::handleJobResource);

    OstrandService& host = OstrandService::the();
    host.webServer.addPage("/", front);
    host.webServer.addPage("/job", jobs);
    host.webServer.addPage("/job/add", jobs);
    host.webServer.addPage("/job/*", job);
    host.webServer.addPage("/favicon.ico",
                           Portico::WebPageStatic(OstrandHub::ostrandHub_icon_col_sans_ico,
                                                  OstrandHub::iconSize, "image/x-icon", 200));
    if (!host.ssl)
        return;
    // The secure server has neither "/job/add" nor the icon: a POST to the former meets "/job/*".
    host.sslWebServer.addPage("/", front);
    host.sslWebServer.addPage("/job", jobs);
    host.sslWebServer.addPage("/job/*", job);
}

bool ServiceProvider::handleJobRequest(const Request& request, Reply& reply) {
    bool handled = true;
    if (request.method == "GET") {
        handled = listJobs(request, reply);
    } else if (request.method == "POST") {
        picojson::value value;
        if (!OstrandHub::parseJson(request.body(), value)) {
            reply.setCode(400);
            return true;
        }
        if (value.is<picojson::object>())
            handled = addJob(request, value, reply);
        else if (value.is<picojson::array>())
            addJobBatch(request, value.get<picojson::array>(), reply);
    } else {
        reply.setCode(400);
        return true;
    }
    if (handled)
        addCorsHeaders(request, reply);
    return handled;
}

// The index counts elements that are skipped too, and the bodies go in as they stand: the answer
// to [1,{...}] begins with "[,[", and a body with a quote or a line end in it leaves no valid JSON.
// That form is part of the interface.
void ServiceProvider::addJobBatch(const Request& request, const picojson::array& batch,
                                  Reply& reply) {
    std::string text = "[";
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (!batch[i].is<picojson::object>())
            continue;
        Reply local;
        addJob(request, batch[i], local);
        text += i == 0 ? "[" : ",[";
        text += std::to_string(local.code) + ",\"" + local.body() + "\"]";
    }
    text += "]";
    reply.body() = text;
    reply.setCode(200);
}

bool ServiceProvider::listJobs(const Request& request, Reply& reply) {
    const std::string accept =
        Config::Base::string2Value(request.header().getParam("Accept", nullptr), "*/*");
    // The whole value counts: a list of types that begins with JSON asks for HTML.
    return accept == "application/json" ? listJobsJson(request, reply)
                                        : listJobsHtml(request, reply);
}

bool ServiceProvider::handleJobResource(const Request& request, Reply& reply) {
    bool handled = true;
    if (request.method == "GET") {
        handled = getJob(request, reply);
    } else if (request.method == "DELETE") {
        handled = deleteJob(request, reply);
    } else {
        reply.setCode(400);
        return true;
    }
    if (handled)
        addCorsHeaders(request, reply);
    return handled;
}

} // namespace OstrandService

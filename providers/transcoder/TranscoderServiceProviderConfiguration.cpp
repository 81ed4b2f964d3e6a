#include "framework/Cors.h"
#include "framework/DeliveryServer.h"
#include "framework/JsonNumbers.h"
#include "framework/OptionValues.h"
#include "framework/WebPageObject.h"
#include "host/OstrandService.h"
#include "platform/hub/HubFiles.h"
#include "platform/hub/Icon.h"
#include "platform/hub/Json.h"
#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "platform/kestrel/SysInfo.h"
#include "platform/portico/WebPageStatic.h"
#include "providers/transcoder/DeliveryWebPage.h"
#include "providers/transcoder/ServiceTranscoderJob.h"
#include "providers/transcoder/TranscoderServiceProvider.h"

#include <boost/filesystem.hpp>
#include <boost/program_options.hpp>
#include <cstdio>
#include <iostream>
#include <sstream>

namespace OstrandService {

namespace po = boost::program_options;

namespace {

/// The text under `key`, or null where there is none or it is no string.
const std::string* textUnder(const picojson::object& config, const char* key) {
    const auto found = config.find(key);
    if (found == config.end() || !found->second.is<std::string>())
        return nullptr;
    return &found->second.get<std::string>();
}

/// Reads a JSON value from the beginning of `body`, which counts up to its first zero byte. False,
/// reported, where there is none.
bool parseLoosely(const std::string& body, picojson::value& value) {
    std::string error;
    if (OstrandHub::parseJsonPrefix(body.c_str(), value, error))
        return true;
    std::cerr << "JSON POST parsing error: " << error << std::endl;
    return false;
}

} // namespace

void TranscoderServiceProvider::addOptions(po::options_description& desc) {
    ServiceProvider::addOptions(desc);
    // clang-format off
    desc.add_options()
        ("fettle_path", po::value<std::string>(&fettlePath),
         "fettle executable path (default is \"fettle.exe\" on Windows, \"fettle\" on Linux)")
        ("delivery_service", po::value<std::string>(&deliveryUrl), "HTTP address of delivery service")
        ("external_ip", po::value<std::string>(&externalIp), "HTTP address of delivery service")
        ("delivery_port", plainNumber(deliveryPort), "HTTP port of the delivery service")
        ("worker_threads,t", plainThreadNumber(workerCount),
         "Number of worker threads, default is 3")
        ("delivery-cert", po::value<std::string>(&deliveryCert), "ssl certificate filename.")
        ("delivery-key", po::value<std::string>(&deliveryKey), "ssl key filename.")
        ("replyorigin", po::value<bool>(&replyOrigin)->implicit_value(true)->zero_tokens(),
         "create a origin based sec cmd reply on the same host")
        ("disable_url_decode", "Disables URL decoding of job URIs.");
    // clang-format on
}

bool TranscoderServiceProvider::init(const po::variables_map& vm) {
    if (!ServiceProvider::init(vm) || !loadConfigFile())
        return false;
    if (replyOrigin)
        TranscoderJobDesc::secCmdDefaultReplyType = ReplyType::Origin;
    // Before the delivery address is known, and with today's whitelists: a job of old that they
    // refuse is skipped.
    try {
        loadOldJobs();
    } catch (const std::exception& error) {
        std::cout << std::endl;
        std::fprintf(stderr, "cannot read old jobs : %s\n", error.what());
        return false;
    }
    OstrandService& host = OstrandService::the();
    if (deliveryUrl.empty())
        deliveryUrl = "http://" + host.getHost() + ":" + defaultDeliveryPort();
    if (host.ssl && host.sslCert.empty()) {
        // One pair serves both servers.
        host.sslCert = deliveryCert;
        host.sslKey = deliveryKey;
    }
    return true;
}

// False where there is a file and it can't be used: a service with half its whitelists would do
// what nobody configured.
bool TranscoderServiceProvider::loadConfigFile() {
    const std::string path = OstrandHub::getHubDataPath() + "/config/transcoderconfig.json";
    std::fprintf(stderr, "init with config file : %s\n", path.c_str());
    boost::system::error_code error;
    const boost::filesystem::file_type type = boost::filesystem::status(path, error).type();
    if (type == boost::filesystem::file_not_found || type == boost::filesystem::status_error)
        return true;
    std::string text;
    picojson::value value;
    if (!OstrandHub::getFileContents(path.c_str(), text) || !OstrandHub::parseJson(text, value)) {
        std::fprintf(stderr, "cannot use config file : no readable JSON\n");
        return false;
    }
    TranscoderJobDesc::initFrom(value, true);
    return true;
}

void TranscoderServiceProvider::addPages() {
    ServiceProvider::addPages();
    using Page = Portico::WebPageObject<TranscoderServiceProvider>;
    deliveryServer.addPage("/*", DeliveryWebPage("", baseCachePath));
    deliveryServer.addPage("/favicon.ico",
                           Portico::WebPageStatic(OstrandHub::ostrandHub_icon_col_sans_ico,
                                                  OstrandHub::iconSize, "image/x-icon", 200));
    Portico::ThreadedWebServer& webServer = OstrandService::the().webServer;
    webServer.addPage("/job/updateState", Page(this, &TranscoderServiceProvider::updateJobStates));
    webServer.addPage("/config", Page(this, &TranscoderServiceProvider::handleConfig));
}

void TranscoderServiceProvider::start() {
    workerThreads.resize(workerCount, nullptr);
    startDeliveryServer(deliveryServer, deliveryCert, deliveryKey);
    ServiceProvider::start();

    std::ostringstream document;
    writeRegistrationHead(document, "TranscoderService");
    document << "," << std::endl << std::endl;
    writeRegistrationEntries(document);
    writeRegistrationTail(document);
    hubProvider->addServiceProvider(document.str(), OstrandService::the().ssl);
}

void TranscoderServiceProvider::shutdown() {
    deliveryServer.stop();
    ServiceProvider::shutdown();
    unsettled.settle();
    releaseTables();
}

// The host destroys the base part alone, so what this class holds on the heap goes here.
void TranscoderServiceProvider::releaseTables() {
    unsettled.clear();
    std::vector<TranscoderJob>().swap(jobs);
    jobIndex.clear();
    deliveryServer.clearPages();
    for (std::string* text : {&fettlePath, &deliveryUrl, &externalIp, &deliveryCert, &deliveryKey})
        std::string().swap(*text);
}

std::string TranscoderServiceProvider::getDeliveryUrl() const {
    const std::lock_guard<std::mutex> lock(deliveryUrlMutex);
    return deliveryUrl;
}

std::string TranscoderServiceProvider::defaultDeliveryPort() const {
    return std::to_string(deliveryPort != 0 ? deliveryPort : OstrandService::the().port + 1);
}

bool TranscoderServiceProvider::handleConfig(const Request& request, Reply& reply) {
    reply.setCode(400);
    addCorsHeaders(request, reply);
    if (request.method != "POST")
        return true;
    picojson::value value;
    if (!parseLoosely(request.body(), value) || !value.is<picojson::object>())
        return true;
    const picojson::object& config = value.get<picojson::object>();
    // A "service" that is no string names none and passes.
    const std::string* service = textUnder(config, "service");
    if (service && *service != "TranscoderService") {
        std::fprintf(stderr, "looking for wrong service : %s\n", service->c_str());
        return true;
    }
    // "threads" is accepted and changes nothing: the number of workers is fixed at the start.
    const auto clear = config.find("clearCache");
    if (clear != config.end() && clear->second.is<bool>() && clear->second.get<bool>())
        clearCache();
    if (config.count("deliveryPort") != 0 || config.count("deliveryProto") != 0)
        reconfigureDelivery(config);
    reply.body() =
        "<HEAD>\n<meta http-equiv=\"refresh\" content=\"0; url=/index.html\"/>\n</HEAD>\n";
    reply.setCode(200);
    return true;
}

void TranscoderServiceProvider::reconfigureDelivery(const picojson::object& config) {
    const std::string& ownName = Kestrel::SysInfo::the().hostName();
    const std::string* proto = textUnder(config, "deliveryProto");
    std::string url = (proto ? *proto : "http") + "://";

    const std::string* host = textUnder(config, "deliveryHost");
    if (host && *host == "localip")
        url += externalIp.empty() ? ownName : externalIp;
    else
        url += host ? *host : ownName;
    url += ":";

    const auto port = config.find("deliveryPort");
    if (port == config.end())
        url += defaultDeliveryPort();
    else if (port->second.is<double>())
        url += integerPart(port->second.get<double>());
    const std::lock_guard<std::mutex> lock(deliveryUrlMutex);
    deliveryUrl = url;
}

} // namespace OstrandService

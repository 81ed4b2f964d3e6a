#include "framework/DeliveryServer.h"
#include "framework/JobFolder.h"
#include "framework/NumberedFolders.h"
#include "framework/OptionValues.h"
#include "framework/WebPageObject.h"
#include "host/OstrandService.h"
#include "platform/hub/HubFiles.h"
#include "platform/hub/Icon.h"
#include "platform/hub/MessageLog.h"
#include "platform/kestrel/SysInfo.h"
#include "platform/portico/WebPageStatic.h"
#include "providers/legacy/DeliveryWebPage.h"
#include "providers/legacy/JobProcThread.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/ScreenshotScene.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"

#include <boost/filesystem.hpp>
#include <boost/program_options.hpp>
#include <exception>
#include <iostream>
#include <system_error>

namespace OstrandService {

namespace fs = boost::filesystem;
namespace po = boost::program_options;

void TranscoderLegacyServiceProvider::addOptions(po::options_description& desc) {
    // The cache path is an option of the base and of this provider: twice in one description it
    // would be ambiguous. It stands at this provider's place and goes to both.
    po::options_description base;
    ServiceProvider::addOptions(base);
    for (const auto& option : base.options()) {
        if (option->long_name() != "cache_path")
            desc.add(option);
    }
    // clang-format off
    desc.add_options()
        ("fettle_path", po::value<std::string>(&state.fettlePath),
         "fettle executable path (default is \"fettle.exe\" on Windows, \"fettle\" on Linux)")
        ("cache_path,c", po::value<std::string>(&state.cachePath)
                             ->notifier([this](const std::string& path) { cachePath = path; }),
         "Cache path to store results at.")
        ("delivery_service", po::value<std::string>()
                                 ->notifier([this](const std::string& uri) {
                                     state.setDeliveryService(uri);
                                 }),
         "HTTP address of delivery service")
        ("delivery_port", plainNumber(deliveryPort), "HTTP port of the delivery service")
        ("worker_threads,t", plainThreadNumber(workerThreadsOption),
         "Number of worker threads, default is 3")
        ("disable_url_decode", "Disables URL decoding of job URIs.");
    // clang-format on
}

void TranscoderLegacyServiceProvider::setupLogging() {
    MessageLog::setLogPath(logPath);
    state.cachePath = "./transcoder/cache";
    state.fettlePath = "fettle.exe";
    LegacyState::current = &state;
    state.screenshotTemplate = screenshotScene;
}

bool TranscoderLegacyServiceProvider::init(const po::variables_map& vm) {
    if (!ServiceProvider::init(vm))
        return false;
    state.urlDecode = vm.count("disable_url_decode") == 0;
    state.workerCount = static_cast<std::int32_t>(workerThreadsOption);
    try {
        makeCacheFolders();
    } catch (...) {
        std::cout << "Error: cannot create cache and log folders in this "
                  << "directory. Please use the command line to specify "
                  << "existing folders for both." << std::endl;
        return false;
    }
    try {
        loadOldJobs();
    } catch (const std::exception& error) {
        std::cout << std::endl;
        std::cerr << "cannot read old jobs : " << error.what() << std::endl;
        return false;
    }
    std::cout << "Number of worker threads: " << state.workerCount << std::endl;
    MessageLog::the()->log("Params: number of worker threads: " +
                           std::to_string(state.workerCount));
    if (!startFirstWorkers())
        return false;
    if (state.getDeliveryService().empty()) {
        state.setDeliveryService("http://" + Kestrel::SysInfo::the().hostName() + ":" +
                                 defaultDeliveryPort());
    }
    return true;
}

/// False, and told on standard error, where the system does not give as many threads.
bool TranscoderLegacyServiceProvider::startFirstWorkers() {
    const std::lock_guard<std::mutex> lock(state.workersMutex);
    try {
        startWorkers(state.workerCount);
        return true;
    } catch (const std::system_error& error) {
        std::cerr << "cannot start " << state.workerCount << " worker threads: " << error.what()
                  << std::endl;
    }
    // All at once: nobody has given them work yet.
    for (const auto& worker : state.workerThreads)
        worker->requestStop();
    stopWorkers();
    return false;
}

void TranscoderLegacyServiceProvider::makeCacheFolders() {
    if (!fs::exists(state.cachePath))
        fs::create_directories(state.cachePath);
    // Fixed here once; the cache path itself is resolved at each use.
    state.uploadPath = fs::absolute(fs::path(state.cachePath) / "in", fs::current_path());
    if (!fs::exists(state.uploadPath))
        fs::create_directories(state.uploadPath);
}

void TranscoderLegacyServiceProvider::loadOldJobs() {
    if (!JobFolder::isFolder(state.cachePath))
        return;
    std::cout << "Loading old jobs: " << std::flush;
    std::uint32_t loaded = 0;
    for (const auto& folder : numberedFolders<std::uint32_t>(state.cachePath)) {
        if (!JobFolder::exists(folder.second + "/.meta"))
            continue;
        if (folder.first > JobFolder::maxId) {
            MessageLog::the()->log("old job skipped, no usable id: " + folder.second);
            continue;
        }
        ++loaded;
        loadFolder(folder.first, folder.second);
    }
    std::cout << loaded << std::endl;
}

void TranscoderLegacyServiceProvider::loadFolder(std::uint32_t id, const std::string& folder) {
    state.store->loadJob(id, JobFolder::readText(folder + "/.meta"), folder);
    state.store->loadTimings(id, JobFolder::readText(folder + "/.timings"));
}

std::string TranscoderLegacyServiceProvider::defaultDeliveryPort() const {
    return std::to_string(deliveryPort != 0 ? deliveryPort : OstrandService::the().port + 1);
}

void TranscoderLegacyServiceProvider::addPages() {
    using Self = TranscoderLegacyServiceProvider;
    using Page = Portico::WebPageObject<Self>;
    const Portico::WebPageStatic icon(OstrandHub::ostrandHub_icon_col_sans_ico,
                                      OstrandHub::iconSize, "image/x-icon", 200);
    deliveryServer.addPage("/*", DeliveryWebPage("", state.cachePath));
    deliveryServer.addPage("/favicon.ico", icon);

    OstrandService& host = OstrandService::the();
    state.webServer = &host.webServer;
    const std::pair<const char*, Page> pages[] = {
        {"/", Page(this, &Self::handleFrontPage)},
        {"/job/add", Page(this, &Self::handleJobAdd)},
        {"/job/delete", Page(this, &Self::deleteJob)},
        {"/job", Page(this, &Self::handleJobRequest)},
        {"/job/list", Page(this, &Self::listJobs)},
        {"/job/list/cached", Page(this, &Self::handleListCached)},
        {"/job/list/json", Page(this, &Self::listJobsJson)},
        {"/job/list/open", Page(this, &Self::handleListOpen)},
        {"/job/*", Page(this, &Self::getJob)},
        {"/job/updateState", Page(this, &Self::handleUpdateState)},
        {"/settings", Page(this, &Self::handleSettings)},
        {"/changelog", Page(this, &Self::handleChangelog)},
        {"/statistics", Page(this, &Self::handleStatistics)},
        {"/chart.js", Page(this, &Self::handleChartScript)},
        {"/version", Page(this, &Self::handleVersion)}};
    for (const auto& page : pages)
        state.webServer->addPage(page.first, page.second);
    state.webServer->addPage("/favicon.ico", icon);
    if (host.allowReconfig)
        state.webServer->addPage("/reconfig", Page(this, &Self::handleReconfig));
}

void TranscoderLegacyServiceProvider::start() {
    // Never over TLS: the provider is given no certificate for it.
    startDeliveryServer(deliveryServer, "", "");
    std::cout << std::endl;
    registerWithHub();
}

void TranscoderLegacyServiceProvider::update() {
    ServiceProvider::update();
    state.store->settle();
}

} // namespace OstrandService

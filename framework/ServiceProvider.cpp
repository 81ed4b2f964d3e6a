#include "framework/ServiceProvider.h"

#include "host/OstrandService.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/portico/InetAddress.h"

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>
#include <boost/program_options.hpp>
#include <boost/thread/thread.hpp>
#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace OstrandService {

namespace po = boost::program_options;

namespace {

/// Starts one worker thread of `count`. Throws std::runtime_error where the system gives no more.
boost::thread* startWorker(ServiceProvider& provider, std::size_t count) {
    try {
        return new boost::thread([&provider] { provider.workerLoop(); });
    } catch (const boost::thread_resource_error& error) {
        throw std::runtime_error("cannot start " + std::to_string(count) +
                                 " worker threads: " + error.what());
    }
}

/// Makes a folder and those above it unless something of this name is there. Throws.
void makeFolder(const std::string& path) {
    const boost::filesystem::file_type type = boost::filesystem::status(path).type();
    if (type == boost::filesystem::status_error || type == boost::filesystem::file_not_found)
        boost::filesystem::create_directories(path);
}

} // namespace

ServiceProvider::ServiceProvider(const std::string& logFolder, const std::string& cacheFolder)
    : logPath(logFolder), baseCachePath(cacheFolder), cachePath(cacheFolder) {}

ServiceProvider::~ServiceProvider() = default;

void ServiceProvider::addOptions(po::options_description& desc) {
    // clang-format off
    desc.add_options()
        ("log_path,l", po::value<std::string>(&logPath), "Path to store logs at.")
        ("cache_path,c", po::value<std::string>(&cachePath), "Cache path to store results at.")
        ("mcastreg,m", po::bool_switch()->default_value(false), "register by multicast request")
        ("ipreg,i", po::value<std::string>(&regAddress)->default_value(regAddress),
         "register by ip request")
        ("providerid", po::value<std::string>(&providerId),
         "provider id used in place of the service uuid for result uri")
        ("shortuuid", po::value<bool>(&shortUuid)->implicit_value(true)->zero_tokens(),
         "create a shortened uuid");
    // clang-format on
}

void ServiceProvider::setupLogging() {
    MessageLog::setLogPath(logPath);
}

bool ServiceProvider::init(const po::variables_map& vm) {
    MessageLog::setLogPath(logPath);
    if (!makeFolders())
        return false;
    regByMulticast = vm["mcastreg"].as<bool>();
    std::fprintf(stderr, "mcast reg : %d\n", regByMulticast ? 1 : 0);
    std::fprintf(stderr, "ip reg : %s\n", regAddress.c_str());
    return true;
}

bool ServiceProvider::makeFolders() {
    baseCachePath = cachePath;
    try {
        makeFolder(baseCachePath);
    } catch (...) {
        std::cout << "Error: cannot create base cache folders in this "
                  << "directory. Please use the command line to specify "
                  << "existing folders for both." << std::endl;
        return false;
    }
    if (!hubProvider) {
        hubProvider.reset(
            new OstrandHubServiceProvider(baseCachePath, OstrandService::the().group, shortUuid));
    }
    if (providerId.empty())
        providerId = hubProvider->getUUID();
    cachePath += "/" + providerId;
    try {
        makeFolder(logPath);
        makeFolder(cachePath);
    } catch (...) {
        std::cout << "Error: cannot create log folders in this "
                  << "directory. Please use the command line to specify "
                  << "existing folders for both." << std::endl;
        return false;
    }
    // No reason to end: the other one may be about to go, and waits for its last tool.
    if (!cacheClaim.take(cachePath))
        std::fprintf(stderr, "cache folder in use by another service: %s\n", cachePath.c_str());
    return true;
}

void ServiceProvider::start() {
    running = true;
    for (boost::thread*& worker : workerThreads)
        worker = startWorker(*this, workerThreads.size());

    const OstrandService& host = OstrandService::the();
    hubProvider->setRegIPAddress(regAddress);
    hubProvider->regByMulticast = regByMulticast;
    hubProvider->mcastPort = host.mport;
    const bool group = hubProvider->setAddress(Portico::InetAddress::getByAddress(host.maddr));
    if (!group && regByMulticast)
        MessageLog::the()->log("hub: no multicast address: " + host.maddr);
    hubProvider->mcastTtl = host.mttl;
    // The hub's clients keep the interval in 16 bits; more does not reach them.
    hubProvider->refreshInterval = static_cast<std::uint16_t>(host.refresh);
}

void ServiceProvider::update() {
    systemInfo.update();
    systemInfo.update_csv_log();
}

void ServiceProvider::shutdown() {
    if (hubProvider) {
        hubProvider->removeServiceProvider(OstrandService::the().ssl);
        hubProvider->close();
        hubProvider.reset();
    }
    systemInfo.close();
    std::fprintf(stderr, "shutting down threads\n");
    running = false;
    jobQueue.close();
    for (boost::thread*& worker : workerThreads) {
        if (!worker)
            continue;
        worker->join();
        delete worker;
        worker = nullptr;
    }
}

} // namespace OstrandService

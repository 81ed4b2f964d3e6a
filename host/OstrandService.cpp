#include "host/OstrandService.h"

#include "framework/PagePolicy.h"
#include "framework/ServiceProvider.h"
#include "host/ServiceProviderRegistry.h"
#include "platform/hub/MessageLog.h"
#include "platform/kestrel/Signal.h"
#include "platform/kestrel/SysInfo.h"
#include "platform/kestrel/Thread.h"

#include <atomic>
#include <iostream>
#include <new>

namespace OstrandService {

namespace {

constexpr std::uint32_t secureThreads = 32;
constexpr Kestrel::SignalType termination = 0;
constexpr unsigned long updateMillis = 500;

void configure(Portico::ThreadedWebServer& server, std::uint32_t threads) {
    server.setRealm("OstrandService");
    server.setLogSize(25);
    server.startFlags = 0;
    server.threadParams = {threads, 30, 2, 15};
    server.traceRequests = false;
    server.traceReplies = false;
    server.htmlHeader = PagePolicy::header();
}

} // namespace

/// Remembers that the termination signal came; the main thread looks at the flag.
class OstrandService::WaitForTerm : public Kestrel::Signal::SignalHandler {
public:
    ~WaitForTerm() override { Kestrel::Signal::the.removeSignalHandler(termination); }

    void handleSignal() override { term = true; }

    bool isTerminated() const { return term; }

private:
    std::atomic<bool> term{false};
};

OstrandService::OstrandService() : host(Kestrel::SysInfo::the().hostName()) {}

OstrandService& OstrandService::the() {
    static OstrandService* const instance = new OstrandService;
    return *instance;
}

bool OstrandService::createProvider(const std::string& name) {
    provider = ServiceProviderRegistry::the().create(name);
    return provider != nullptr;
}

void OstrandService::setupLogging() {
    if (provider)
        provider->setupLogging();
}

bool OstrandService::init(const boost::program_options::variables_map& vm) {
    return provider && provider->init(vm);
}

void OstrandService::addPages() {
    if (provider)
        provider->addPages();
}

void OstrandService::start() {
    MessageLog::the()->log("Params: listening on port " + std::to_string(port));
    startPlainServer();
    if (ssl)
        startSecureServer();
    if (provider)
        provider->start();
}

void OstrandService::startPlainServer() {
    // A negative number is printed as it was given and serves like 1.
    configure(webServer, listenThreads > 0 ? static_cast<std::uint32_t>(listenThreads) : 0);
    webServer.start("", port, "", "");
    std::cout << "OstrandService listening on port: " << webServer.socketAddress.getServicePort()
              << " with : " << listenThreads << " threads" << std::endl
              << std::endl;
}

void OstrandService::startSecureServer() {
    configure(sslWebServer, secureThreads);
    if (sslCert.empty() || sslKey.empty()) {
        std::cout << "OstrandService ssl no certificate given" << std::endl << std::endl;
        return;
    }
    sslWebServer.start("", static_cast<std::uint16_t>(port - 1), sslCert, sslKey);
    // The line repeats the plain server's port and thread number: scripts that read it take the
    // port minus 1 themselves.
    std::cout << "OstrandService ssl listening on port: "
              << webServer.socketAddress.getServicePort() << " with : " << listenThreads
              << " threads" << std::endl
              << std::endl;
}

void OstrandService::wait() {
    WaitForTerm handler;
    Kestrel::Signal::the.addSignalHandler(termination, handler);
    while (!handler.isTerminated()) {
        if (provider)
            provider->update();
        Kestrel::Thread::sleep(updateMillis);
    }
    Kestrel::Signal::the.removeSignalHandler(termination);
}

void OstrandService::stop() {
    webServer.stop();
    if (ssl)
        sslWebServer.stop();
    if (!provider)
        return;
    provider->shutdown();
    // The destructor is not virtual, and a subclass's members are not destroyed: shutdown() has
    // released what they hold. Only the base part is torn down, and its storage given back without
    // a size, since the size here is not that of the object.
    provider->ServiceProvider::~ServiceProvider();
    ::operator delete(static_cast<void*>(provider));
    provider = nullptr;
}

} // namespace OstrandService

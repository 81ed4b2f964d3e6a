#include "platform/portico/Engine.h"

#include "platform/hub/MessageLog.h"
#include "platform/portico/FrontLimits.h"
#include "platform/portico/PlainConnection.h"
#include "platform/portico/TlsConnection.h"
#include "platform/portico/TlsContext.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <exception>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Portico {

namespace {

/// Short limits need shorter looks.
std::int64_t sweepInterval(const ThreadParams& params) {
    const std::int64_t shortest =
        std::int64_t{std::min(params.idleSeconds, params.clientSeconds)} * 1000;
    return std::clamp<std::int64_t>(shortest / 4, 50, FrontLimits::sweepMillis);
}

std::chrono::milliseconds stallInterval(const ThreadParams& params) {
    return std::chrono::milliseconds(std::max<std::uint32_t>(params.stallMillis, 1));
}

} // namespace

struct ThreadedWebServer::Engine::Core {
    Core(StallMonitor& monitor, ServerState& state, std::int64_t sweepMillis)
        : io(monitor, [&state](const std::string& text) { state.log.line(text); }),
          connections(io.context(), sweepMillis, [&state] { state.log.flush(false); }) {}

    IoCore io;
    ConnectionList connections;
};

ThreadedWebServer::Engine::Engine(const PageTable& pages, const Settings& settings,
                                  unsigned short port, const std::string& certFile,
                                  const std::string& keyFile)
    : state(pages, settings.realm, settings.threads, settings.bodyLimit, settings.logSize,
            [](const std::string& text) { OstrandService::MessageLog::the()->log(text); }),
      monitor(stallInterval(settings.threads)) {
    state.traceRequests = settings.traceRequests;
    state.traceReplies = settings.traceReplies;
    state.htmlHeader = settings.htmlHeader;
    if (!certFile.empty() || !keyFile.empty())
        tls = makeTlsContext(certFile, keyFile);
    const unsigned count = std::max(std::thread::hardware_concurrency(), 1u);
    for (unsigned i = 0; i < count; ++i)
        cores.push_back(std::make_unique<Core>(monitor, state, sweepInterval(settings.threads)));
    listener = std::make_unique<Listener>(cores.front()->io.context(), port);
}

ThreadedWebServer::Engine::~Engine() {
    // After a start that failed half-way it may still look at the cores.
    monitor.stop();
}

void ThreadedWebServer::Engine::start() {
    std::vector<IoCore*> watched;
    for (const auto& core : cores) {
        core->io.start();
        watched.push_back(&core->io);
    }
    monitor.start(std::move(watched));
    listener->start([this](int handle, const auto& protocol) { accept(handle, protocol); },
                    [this](const std::string& reason) { exhausted(reason); });
}

void ThreadedWebServer::Engine::stop() {
    state.stopping.store(true);
    // The port is free for a successor before the last replies have left.
    listener->close();
    for (const auto& core : cores)
        core->connections.closeResting();
    for (const auto& core : cores)
        core->connections.waitEmpty();
    monitor.stop();
    for (const auto& core : cores)
        core->io.stop();
    state.log.flush(true);
}

void ThreadedWebServer::Engine::accept(int handle, const boost::asio::ip::tcp& protocol) {
    Core& core = *cores[nextCore];
    nextCore = (nextCore + 1) % cores.size();
    Connection::Socket socket(core.io.context());
    boost::system::error_code failure;
    try {
        socket.assign(protocol, handle);
    } catch (const std::exception&) {
        ::close(handle);
        return;
    }
    // Sending is tried at once, and must say so when it can't be done.
    socket.non_blocking(true, failure);
    std::shared_ptr<Connection> connection;
    if (tls)
        connection = std::make_shared<TlsConnection>(std::move(socket), *tls, core.io,
                                                     core.connections, state);
    else
        connection =
            std::make_shared<PlainConnection>(std::move(socket), core.io, core.connections, state);
    boost::asio::post(core.io.context(), [connection] { connection->start(); });
}

void ThreadedWebServer::Engine::exhausted(const std::string& reason) {
    for (const auto& core : cores)
        core->connections.evict(FrontLimits::evictCount);
    const auto now = LogLimiter::Clock::now();
    if (now - lastExhausted < std::chrono::seconds(1))
        return;
    lastExhausted = now;
    state.log.line("web server " + state.realm + ": no more connections for now: " + reason);
}

} // namespace Portico

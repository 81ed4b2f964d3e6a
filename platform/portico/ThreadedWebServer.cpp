#include "platform/portico/ThreadedWebServer.h"

#include "platform/portico/Engine.h"

#include <system_error>
#include <utility>

namespace Portico {

ThreadedWebServer::ThreadedWebServer() = default;

ThreadedWebServer::~ThreadedWebServer() {
    ThreadedWebServer::stop();
}

void ThreadedWebServer::start(const std::string&, unsigned short port, const std::string& certFile,
                              const std::string& keyFile) {
    stop();
    const Engine::Settings settings{realm,         threadParams, bodyLimit, logSize,
                                    traceRequests, traceReplies, htmlHeader};
    auto prepared = std::make_unique<Engine>(pages, settings, port, certFile, keyFile);
    try {
        prepared->start();
    } catch (const std::system_error& failure) {
        throw ListenError("cannot listen on port " + std::to_string(port) + ": " + failure.what());
    }
    socketAddress = prepared->address();
    engine = std::move(prepared);
}

void ThreadedWebServer::stop() {
    if (!engine)
        return;
    engine->stop();
    engine.reset();
}

} // namespace Portico

#include "platform/portico/ThreadedWebServer.h"

#include "platform/portico/Engine.h"

#include <boost/system/system_error.hpp>
#include <system_error>
#include <utility>

namespace Portico {

namespace {

ListenError lacking(unsigned short port, const std::string& reason) {
    return ListenError("cannot listen on port " + std::to_string(port) + ": " + reason);
}

} // namespace

ThreadedWebServer::ThreadedWebServer() = default;

ThreadedWebServer::~ThreadedWebServer() {
    ThreadedWebServer::stop();
}

void ThreadedWebServer::start(const std::string&, unsigned short port, const std::string& certFile,
                              const std::string& keyFile) {
    stop();
    const Engine::Settings settings{realm,         threadParams, bodyLimit, logSize,
                                    traceRequests, traceReplies, htmlHeader};
    std::unique_ptr<Engine> prepared;
    try {
        prepared = std::make_unique<Engine>(pages, settings, port, certFile, keyFile);
        prepared->start();
    } catch (const boost::system::system_error& failure) {
        throw lacking(port, failure.code().message()); // no more files
    } catch (const std::system_error& failure) {
        throw lacking(port, failure.what()); // no more threads
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

#pragma once

#include "platform/portico/ConnectionList.h"
#include "platform/portico/IoCore.h"
#include "platform/portico/Listener.h"
#include "platform/portico/ServerState.h"
#include "platform/portico/StallMonitor.h"
#include "platform/portico/ThreadedWebServer.h"

#include <boost/asio/ssl/context.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Portico {

/// A server while it runs: the cores, the listening socket, what the connections share.
class ThreadedWebServer::Engine {
public:
    /// What the server's owner has set.
    struct Settings {
        std::string realm;
        ThreadParams threads;
        std::uint64_t bodyLimit; ///< bytes
        int logSize;             ///< lines a minute
        bool traceRequests;
        bool traceReplies;
        MessageHeader htmlHeader;
    };

    /// Binds the port and loads the certificate, where one is given. Throws ListenError.
    Engine(const PageTable& pages, const Settings& settings, unsigned short port,
           const std::string& certFile, const std::string& keyFile);

    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    SocketAddress address() const { return listener->address(); }

    /// Starts the threads and begins to accept. Throws std::system_error.
    void start();

    /// Ends everything in order; see ThreadedWebServer::stop.
    void stop();

private:
    struct Core;

    void accept(int handle, const boost::asio::ip::tcp& protocol);
    void exhausted(const std::string& reason);

    ServerState state;
    std::unique_ptr<boost::asio::ssl::context> tls; ///< null without TLS
    StallMonitor monitor;
    std::vector<std::unique_ptr<Core>> cores;
    std::unique_ptr<Listener> listener;
    std::size_t nextCore = 0;                    ///< the listener's
    LogLimiter::Clock::time_point lastExhausted; ///< the listener's
};

} // namespace Portico

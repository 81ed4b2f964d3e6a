#pragma once

#include "platform/portico/MessageHeader.h"
#include "platform/portico/SocketAddress.h"
#include "platform/portico/WebServer.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace Portico {

/// Thrown where a server can't begin to serve: port in use or not permitted, unusable certificate
/// or key. what() is the one line that tells the operator.
class ListenError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// How a server uses its threads.
struct ThreadParams {
    std::uint32_t numThreads;    ///< pages that may run at once; 0 serves with one
    std::uint32_t idleSeconds;   ///< until an idle connection is closed
    std::uint32_t stallMillis;   ///< between two looks for a stall of the page threads
    std::uint32_t clientSeconds; ///< that a head, a body or a reply may stand still
};

/// A web server over HTTP or, with a certificate, HTTPS, for IPv4 and IPv6.
///
/// Pages run on the server's own threads, several at a time. No thread waits for a client: heads
/// and bodies are read, and replies written, without one. start() and stop() belong to one thread.
class ThreadedWebServer : public WebServer {
public:
    ThreadedWebServer();

    /// Stops, where that has not been done.
    ~ThreadedWebServer() override;

    /// Binds `port` on all addresses, begins to serve and returns. `reserved` is not used. Empty
    /// `certFile` and `keyFile` mean HTTP, given ones (PEM files) mean TLS. Throws ListenError.
    virtual void start(const std::string& reserved, unsigned short port,
                       const std::string& certFile, const std::string& keyFile);

    /// Takes no new connection, lets running pages finish and their replies leave, closes the
    /// other connections, ends the threads. A server that does not run is left as it is.
    virtual void stop();

    SocketAddress socketAddress;  ///< what was bound; read after start
    std::uint32_t startFlags = 0; ///< no flag is in use
    ThreadParams threadParams{256, 30, 2, 15};
    bool traceRequests = false; ///< log every request's dump
    bool traceReplies = false;  ///< log every reply's code

    /// Bytes of the largest request body; a larger one is answered 413.
    std::uint64_t bodyLimit = 64ull * 1024 * 1024;

    /// Fields that replies of type "text/html" carry besides those that their pages set; where a
    /// page sets one of the same name, that one stands. Other replies are as without it.
    MessageHeader htmlHeader;

private:
    class Engine;
    std::unique_ptr<Engine> engine;
};

} // namespace Portico

#pragma once

#include "platform/portico/SocketAddress.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <chrono>
#include <functional>
#include <string>

namespace Portico {

/// The listening socket of a server, for IPv6 and IPv4 alike where the machine has both.
class Listener {
public:
    /// Takes over an accepted socket: not blocking, closed on exec, of the given protocol. May
    /// throw std::bad_alloc, having closed it.
    using OnAccept = std::function<void(int handle, const boost::asio::ip::tcp& protocol)>;
    /// Called when no more connections can be accepted for the moment, with the reason.
    using OnExhausted = std::function<void(const std::string& reason)>;

    /// Binds `port`, 0 for any free one, and queues connections from then on. Throws ListenError.
    Listener(boost::asio::io_context& io, unsigned short port);

    /// What was bound.
    SocketAddress address() const;

    /// Begins to accept. The functions are called one at a time, on the threads of `io`.
    void start(OnAccept accepted, OnExhausted exhausted);

    /// Closes the socket and returns when that is done and no function runs any more. The threads
    /// of `io` must be running.
    void close();

private:
    using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;

    void waitForClients();
    void acceptClients();
    void pause(int failure);

    boost::asio::basic_socket_acceptor<boost::asio::ip::tcp, Strand> acceptor;
    boost::asio::basic_waitable_timer<std::chrono::steady_clock,
                                      boost::asio::wait_traits<std::chrono::steady_clock>, Strand>
        retry;
    boost::asio::ip::tcp protocol;
    OnAccept onAccept;
    OnExhausted onExhausted;
};

} // namespace Portico

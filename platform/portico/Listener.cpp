#include "platform/portico/Listener.h"

#include "platform/portico/FrontLimits.h"
#include "platform/portico/ThreadedWebServer.h"

#include <boost/asio/post.hpp>
#include <cerrno>
#include <cstring>
#include <future>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Portico {

using boost::asio::ip::tcp;

namespace {

/// Clients that are accepted before others of the core get their turn.
constexpr int acceptRounds = 64;

[[noreturn]] void failListening(unsigned short port, int reason) {
    throw ListenError("cannot listen on port " + std::to_string(port) + ": " +
                      std::generic_category().message(reason));
}

/// A listening socket for one family, or -1 with errno set.
int openSocket(int family, const sockaddr* address, socklen_t size) {
    const int handle = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (handle < 0)
        return -1;
    const int on = 1;
    const int off = 0;
    // Without address reuse a restart would have to wait for the last connections to time out.
    // Port reuse would let two services share a port without notice, so it stays off.
    const bool ready = setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                       setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 &&
                       (family != AF_INET6 ||
                        setsockopt(handle, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) == 0) &&
                       ::bind(handle, address, size) == 0 && ::listen(handle, SOMAXCONN) == 0;
    if (ready)
        return handle;
    const int reason = errno;
    ::close(handle);
    errno = reason;
    return -1;
}

int openDualSocket(unsigned short port) {
    sockaddr_in6 any{};
    any.sin6_family = AF_INET6;
    any.sin6_port = htons(port);
    any.sin6_addr = in6addr_any;
    return openSocket(AF_INET6, reinterpret_cast<const sockaddr*>(&any), sizeof any);
}

int openOldSocket(unsigned short port) {
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(port);
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return openSocket(AF_INET, reinterpret_cast<const sockaddr*>(&any), sizeof any);
}

} // namespace

Listener::Listener(boost::asio::io_context& io, unsigned short port)
    : acceptor(Strand(io.get_executor())), retry(acceptor.get_executor()), protocol(tcp::v6()) {
    // One socket for both families also finds a port that somebody holds in only one of them.
    int handle = openDualSocket(port);
    if (handle < 0 && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL)) {
        protocol = tcp::v4();
        handle = openOldSocket(port);
    }
    if (handle < 0)
        failListening(port, errno);
    boost::system::error_code failure;
    acceptor.assign(protocol, handle, failure);
    if (failure) {
        ::close(handle);
        failListening(port, failure.value());
    }
}

SocketAddress Listener::address() const {
    boost::system::error_code ignored;
    const tcp::endpoint bound = acceptor.local_endpoint(ignored);
    return SocketAddress(bound.address().to_string(), bound.port());
}

void Listener::start(OnAccept accepted, OnExhausted exhausted) {
    onAccept = std::move(accepted);
    onExhausted = std::move(exhausted);
    boost::asio::post(acceptor.get_executor(), [this] { waitForClients(); });
}

void Listener::close() {
    std::promise<void> closed;
    boost::asio::post(acceptor.get_executor(), [this, &closed] {
        boost::system::error_code ignored;
        acceptor.close(ignored);
        retry.cancel();
        closed.set_value();
    });
    closed.get_future().wait();
}

void Listener::waitForClients() {
    acceptor.async_wait(tcp::acceptor::wait_read, [this](const boost::system::error_code&) {
        if (acceptor.is_open())
            acceptClients();
    });
}

void Listener::acceptClients() {
    for (int round = 0; round < acceptRounds; ++round) {
        const int handle =
            ::accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        int failure = handle >= 0 ? 0 : errno;
        try {
            if (handle >= 0)
                onAccept(handle, protocol);
        } catch (const std::bad_alloc&) {
            failure = ENOMEM;
        }
        if (failure == EAGAIN)
            break;
        if (failure == EMFILE || failure == ENFILE || failure == ENOBUFS || failure == ENOMEM) {
            pause(failure);
            return;
        }
        // What else may fail is one client's trouble.
    }
    waitForClients();
}

/// Lets clients wait in the system's queue: to ask again at once would only burn time.
void Listener::pause(int failure) {
    onExhausted(std::generic_category().message(failure));
    retry.expires_after(std::chrono::milliseconds(FrontLimits::acceptPauseMillis));
    retry.async_wait([this](const boost::system::error_code&) {
        if (acceptor.is_open())
            acceptClients();
    });
}

} // namespace Portico

// Connections: accepted from clients, made to the hub, read and written.

#include "tests/faults/FaultTable.h"
#include "tests/faults/Marks.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

using namespace Faults;

namespace {

Kind acceptKind("accept");
Kind narrowKind("narrow");
Kind socketKind("socket");
Kind connectKind("connect");
Kind sendKind("send");
Kind shortSendKind("send.short");
Kind receiveKind("recv");
Kind shortReceiveKind("recv.short");
Kind pollKind("poll");

Real<int(int, sockaddr*, socklen_t*, int)> realAccept("accept4");
Real<int(int, int, int)> realSocket("socket");
Real<int(int, const sockaddr*, socklen_t)> realConnect("connect");
Real<ssize_t(int, const void*, size_t, int)> realSend("send");
Real<ssize_t(int, const msghdr*, int)> realSendMessage("sendmsg");
Real<ssize_t(int, void*, size_t, int)> realReceive("recv");
Real<int(int, epoll_event*, int, int)> realEpollWait("epoll_wait");
Real<int(pollfd*, nfds_t, int)> realPoll("poll");

/// True if a transfer over the connection is to fail; the connection is then really broken.
bool breaks(Kind& kind, int connection) {
    if (!fails(kind, placeOf(connection)))
        return false;
    const int error = errno;
    const linger none{1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    ::shutdown(connection, SHUT_RDWR);
    errno = error;
    return true;
}

/// Gives a client's connection small buffers, so that much is sent and received in parts. To cut
/// the calls short would not do: who is told of changes alone takes a short call for an empty or a
/// full buffer, and waits for a change that does not come.
int narrowed(int connection) {
    const int bytes = 65536;
    if (connection >= 0 && narrowKind.strike(clients) != 0) {
        ::setsockopt(connection, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
        ::setsockopt(connection, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
    return connection;
}

size_t shortened(Kind& kind, int connection, size_t size) {
    if (size < 2 || kind.strike(placeOf(connection)) == 0)
        return size;
    return 1 + static_cast<size_t>(chance(std::min<size_t>(size - 1, 64)));
}

} // namespace

OSTRAND_CALL int accept4(int listener, sockaddr* address, socklen_t* size, int flags) {
    if (fails(acceptKind, clients))
        return -1;
    return narrowed(mark(realAccept.get()(listener, address, size, flags), clients));
}

OSTRAND_CALL int socket(int family, int type, int protocol) noexcept {
    if (fails(socketKind, outgoing))
        return -1;
    return mark(realSocket.get()(family, type, protocol), nowhere);
}

OSTRAND_CALL int connect(int connection, const sockaddr* address, socklen_t size) {
    if (fails(connectKind, outgoing))
        return -1;
    mark(connection, outgoing);
    return realConnect.get()(connection, address, size);
}

OSTRAND_CALL ssize_t send(int connection, const void* memory, size_t size, int flags) {
    if (breaks(sendKind, connection))
        return -1;
    return realSend.get()(connection, memory, shortened(shortSendKind, connection, size), flags);
}

// A shortened message ends with its first part.
OSTRAND_CALL ssize_t sendmsg(int connection, const msghdr* message, int flags) {
    if (breaks(sendKind, connection))
        return -1;
    if (message->msg_iovlen == 0)
        return realSendMessage.get()(connection, message, flags);
    iovec first = message->msg_iov[0];
    const size_t size = shortened(shortSendKind, connection, first.iov_len);
    if (size == first.iov_len)
        return realSendMessage.get()(connection, message, flags);
    first.iov_len = size;
    msghdr part = *message;
    part.msg_iov = &first;
    part.msg_iovlen = 1;
    return realSendMessage.get()(connection, &part, flags);
}

OSTRAND_CALL ssize_t recv(int connection, void* memory, size_t size, int flags) {
    if (breaks(receiveKind, connection))
        return -1;
    return realReceive.get()(connection, memory, shortened(shortReceiveKind, connection, size),
                             flags);
}

OSTRAND_CALL int epoll_wait(int queue, epoll_event* events, int most, int millis) {
    return fails(pollKind, process) ? -1 : realEpollWait.get()(queue, events, most, millis);
}

OSTRAND_CALL int poll(pollfd* descriptors, nfds_t count, int millis) {
    return fails(pollKind, process) ? -1 : realPoll.get()(descriptors, count, millis);
}

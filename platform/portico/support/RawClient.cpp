#include "platform/portico/support/RawClient.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace Portico::Support {

namespace {

int openSocket(bool version6) {
    const int handle = ::socket(version6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{60, 0};
    setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(handle, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    return handle;
}

} // namespace

std::string RawReply::header(const std::string& name) const {
    const std::size_t at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos)
        return "(absent)";
    const std::size_t begin = at + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
}

RawClient::RawClient(unsigned short port, bool version6) : socket(openSocket(version6)) {
    connect(port, version6);
}

RawClient::RawClient() : socket(openSocket(false)) {}

RawClient::~RawClient() {
    if (socket >= 0)
        close(socket);
}

RawClient::RawClient(RawClient&& other) noexcept
    : socket(std::exchange(other.socket, -1)), received(std::move(other.received)) {}

bool RawClient::connect(unsigned short port, bool version6) {
    sockaddr_in old{};
    old.sin_family = AF_INET;
    old.sin_port = htons(port);
    old.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 target{};
    target.sin6_family = AF_INET6;
    target.sin6_port = htons(port);
    target.sin6_addr = in6addr_loopback;
    return version6 ? ::connect(socket, reinterpret_cast<sockaddr*>(&target), sizeof target) == 0
                    : ::connect(socket, reinterpret_cast<sockaddr*>(&old), sizeof old) == 0;
}

bool RawClient::send(const std::string& text) {
    std::size_t at = 0;
    while (at < text.size()) {
        const ssize_t sent = ::send(socket, text.data() + at, text.size() - at, MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        at += static_cast<std::size_t>(sent);
    }
    return true;
}

void RawClient::endSending() {
    ::shutdown(socket, SHUT_WR);
}

long RawClient::receive(char* data, std::size_t size) {
    return ::recv(socket, data, size, 0);
}

RawClient::Outcome RawClient::fill() {
    char data[65536];
    const long size = receive(data, sizeof data);
    if (size > 0) {
        received.append(data, static_cast<std::size_t>(size));
        return Outcome::Data;
    }
    return size < 0 && errno == EAGAIN ? Outcome::Timeout : Outcome::End;
}

RawReply RawClient::reply(bool toHead) {
    RawReply reply;
    std::size_t end = 0;
    while ((end = received.find("\r\n\r\n")) == std::string::npos) {
        if (fill() != Outcome::Data)
            return reply;
    }
    reply.head = received.substr(0, end + 2);
    received.erase(0, end + 4);
    const std::string length = reply.header("Content-Length");
    const bool interim = reply.head.substr(9, 1) == "1";
    if (!toHead && !interim && length != "(absent)") {
        const std::size_t size = std::strtoul(length.c_str(), nullptr, 10);
        while (received.size() < size) {
            if (fill() != Outcome::Data)
                return reply;
        }
        reply.body = received.substr(0, size);
        received.erase(0, size);
    }
    reply.code = std::atoi(reply.head.c_str() + 9);
    return reply;
}

RawReply RawClient::get(const std::string& path) {
    send("GET " + path + " HTTP/1.1\r\nHost: h\r\n\r\n");
    return reply();
}

std::string RawClient::rest() {
    Outcome outcome = Outcome::Data;
    while (outcome == Outcome::Data)
        outcome = fill();
    std::string text = std::exchange(received, std::string());
    return outcome == Outcome::Timeout ? text + "(no end)" : text;
}

bool RawClient::isClosed() {
    return received.empty() && fill() == Outcome::End;
}

void RawClient::takeLittle() {
    const int size = 4096;
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

} // namespace Portico::Support

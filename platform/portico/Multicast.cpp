#include "platform/portico/Multicast.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace Portico {

namespace {

/// The address as the system wants it; false where it is no multicast address.
bool toGroup(const InetAddress& address, in_addr& group) {
    return address.isValid() && inet_pton(AF_INET, address.toString().c_str(), &group) == 1 &&
           IN_MULTICAST(ntohl(group.s_addr));
}

std::string lastError() {
    return std::generic_category().message(errno);
}

/// Sends on an open socket; returns an empty text or the reason.
std::string sendOn(int handle, const sockaddr_in& target, int ttl, const std::string& text) {
    const auto hops = static_cast<unsigned char>(std::clamp(ttl, 0, 255));
    const unsigned char loop = 1;
    if (setsockopt(handle, IPPROTO_IP, IP_MULTICAST_TTL, &hops, sizeof hops) != 0 ||
        setsockopt(handle, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop) != 0)
        return lastError();
    const auto send = [&] {
        return sendto(handle, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&target), sizeof target) >= 0;
    };
    if (send())
        return "";
    if (errno == ENETUNREACH) {
        // A machine without a network still has listeners of its own.
        in_addr loopback{};
        loopback.s_addr = htonl(INADDR_LOOPBACK);
        if (setsockopt(handle, IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback) == 0 &&
            send())
            return "";
    }
    return lastError();
}

} // namespace

bool Multicast::setAddress(const InetAddress& address) {
    in_addr parsed{};
    const bool usable = toGroup(address, parsed);
    group = usable ? address : InetAddress();
    return usable;
}

std::string Multicast::send(const InetAddress& group, std::uint16_t port, int ttl,
                            const std::string& text) {
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    if (!toGroup(group, target.sin_addr))
        return "no multicast address";
    const int handle = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (handle < 0)
        return lastError();
    std::string reason = sendOn(handle, target, ttl, text);
    close(handle);
    return reason;
}

} // namespace Portico

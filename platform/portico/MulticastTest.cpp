#include "platform/portico/Multicast.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace Portico {
namespace {

const char groupText[] = "239.255.71.13";

/// A member of the test's group on this machine.
class Member {
public:
    Member() : handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const timeval limit{20, 0};
        setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        sockaddr_in any{};
        any.sin_family = AF_INET;
        EXPECT_EQ(bind(handle, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
        joined = join(INADDR_ANY);
        // A machine without a route for groups sends on its loopback interface.
        joined = join(INADDR_LOOPBACK) || joined;
    }
    ~Member() { close(handle); }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    std::uint16_t port() const {
        sockaddr_in bound{};
        socklen_t size = sizeof bound;
        getsockname(handle, reinterpret_cast<sockaddr*>(&bound), &size);
        return ntohs(bound.sin_port);
    }

    std::string receive() const {
        char text[256];
        const ssize_t size = recv(handle, text, sizeof text, 0);
        return size < 0 ? "(nothing)" : std::string(text, static_cast<std::size_t>(size));
    }

    bool joined = false;

private:
    bool join(in_addr_t interface) const {
        ip_mreq membership{};
        inet_pton(AF_INET, groupText, &membership.imr_multiaddr);
        membership.imr_interface.s_addr = htonl(interface);
        return setsockopt(handle, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) ==
               0;
    }

    int handle;
};

TEST(Multicast, reachesListenersOnThisMachine) {
    Member member;
    ASSERT_TRUE(member.joined);
    Multicast multicast;
    ASSERT_TRUE(multicast.setAddress(InetAddress::getByAddress(groupText)));
    for (const int ttl : {0, 1, 700}) {
        const std::string text = "hello " + std::to_string(ttl);
        EXPECT_EQ(Multicast::send(multicast.getAddress(), member.port(), ttl, text), "");
        EXPECT_EQ(member.receive(), text);
    }
}

TEST(Multicast, takesMulticastAddressesOnly) {
    Multicast multicast;
    EXPECT_FALSE(multicast.setAddress(InetAddress::getByAddress("127.0.0.1")));
    EXPECT_FALSE(multicast.setAddress(InetAddress::getByAddress("nonsense")));
    EXPECT_FALSE(multicast.getAddress().isValid());
    EXPECT_TRUE(multicast.setAddress(InetAddress::getByAddress("224.0.0.1")));
    EXPECT_TRUE(multicast.getAddress().isValid());
    EXPECT_FALSE(multicast.setAddress(InetAddress()));
    EXPECT_FALSE(multicast.getAddress().isValid());
}

TEST(Multicast, tellsWhyItCannotSend) {
    EXPECT_NE(Multicast::send(InetAddress(), 4711, 1, "x"), "");
    EXPECT_NE(
        Multicast::send(InetAddress::getByAddress(groupText), 4711, 1, std::string(100000, 'x')),
        "");
}

} // namespace
} // namespace Portico

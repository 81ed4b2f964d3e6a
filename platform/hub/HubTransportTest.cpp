#include "platform/hub/HubTransport.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::seconds;

constexpr int patience = 20000; ///< ms that a test waits for what must come

/// A hub of the test: takes one connection after the other, reads what comes until it has a whole
/// request, and answers with the same bytes.
class LoopbackHub {
public:
    enum class Mood { Answers, Blurts, Hangs }; ///< the second at the first bytes that come

    LoopbackHub(std::string bytes, Mood hubMood) : answer(std::move(bytes)), mood(hubMood) {
        handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(handle, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(::listen(handle, 8), 0);
        EXPECT_EQ(::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port = ntohs(address.sin_port);
        if (mood != Mood::Hangs)
            thread = std::thread([this] { serve(); });
    }

    ~LoopbackHub() {
        ::shutdown(handle, SHUT_RDWR);
        if (thread.joinable())
            thread.join();
        ::close(handle);
    }

    LoopbackHub(const LoopbackHub&) = delete;
    LoopbackHub& operator=(const LoopbackHub&) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string(port); }

    /// Waits until somebody has connected to a hub that hangs.
    void waitForCaller() {
        pollfd waiting{handle, POLLIN, 0};
        EXPECT_EQ(::poll(&waiting, 1, patience), 1);
    }

    /// What has come in, after the end of all exchanges.
    std::string takeRequest() {
        ::shutdown(handle, SHUT_RDWR);
        if (thread.joinable())
            thread.join();
        return request;
    }

private:
    static bool isWhole(const std::string& text) {
        const std::size_t head = text.find("\r\n\r\n");
        const std::size_t length = text.find("Content-Length: ");
        return head != std::string::npos && length != std::string::npos &&
               text.size() >= head + 4 + std::stoul(text.substr(length + 16, 20));
    }

    void serve() {
        for (int client = ::accept(handle, nullptr, nullptr); client >= 0;
             client = ::accept(handle, nullptr, nullptr)) {
            char block[65536];
            ssize_t got = 1;
            while (!isWhole(request) && (got = ::recv(client, block, sizeof block, 0)) > 0) {
                request.append(block, static_cast<std::size_t>(got));
                if (mood == Mood::Blurts)
                    break;
            }
            ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
            ::close(client);
        }
    }

    const std::string answer;
    const Mood mood;
    int handle = -1;
    unsigned short port = 0;
    std::string request; ///< the thread's until it is joined
    std::thread thread;
};

class DirectTransport : public testing::Test {
protected:
    /// The reason of a failed exchange with a hub that answers so; empty for success.
    std::string exchange(const std::string& answer, const std::string& document = "{}") {
        LoopbackHub hub(answer, LoopbackHub::Mood::Answers);
        const std::string reason = transport->post(hub.address(), false, document, abandoned);
        request = hub.takeRequest();
        return reason;
    }

    const std::shared_ptr<OstrandHub::HubTransport> transport = OstrandHub::makeNetworkTransport();
    std::atomic<bool> abandoned{false};
    std::string request;
};

const std::string emptyAnswer = " X\r\nContent-Length: 0\r\n\r\n";

TEST_F(DirectTransport, SendsOnePostWithTheDocument) {
    EXPECT_EQ(exchange("HTTP/1.1 200" + emptyAnswer, "{\"a\" : \"b\"}\n"), "");
    EXPECT_EQ(request.find("POST /serviceprovider HTTP/1.1\r\n"), 0U) << request;
    EXPECT_NE(request.find("\r\nContent-Type: application/json\r\n"), std::string::npos);
    EXPECT_NE(request.find("\r\nContent-Length: 12\r\n"), std::string::npos);
    EXPECT_NE(request.find("\r\nHost: 127.0.0.1:"), std::string::npos);
    EXPECT_EQ(request.substr(request.size() - 16), "\r\n\r\n{\"a\" : \"b\"}\n");
    EXPECT_EQ(request.find("POST", 1), std::string::npos);
}

TEST_F(DirectTransport, LargeDocumentWaitsForNoPermission) {
    EXPECT_EQ(exchange("HTTP/1.1 200" + emptyAnswer, std::string(1200000, 'x')), "");
    EXPECT_EQ(request.find("Expect"), std::string::npos);
}

TEST_F(DirectTransport, EveryStatusOfTwoHundredIsSuccess) {
    for (const char* code : {"200", "201", "202", "204", "299"})
        EXPECT_EQ(exchange(std::string("HTTP/1.1 ") + code + emptyAnswer), "");
    EXPECT_EQ(exchange("HTTP/1.0 200 OK\r\n\r\nsome text until the end"), "");
}

TEST_F(DirectTransport, EveryOtherStatusIsAFailure) {
    for (const char* code : {"300", "400", "404", "500", "503"})
        EXPECT_EQ(exchange(std::string("HTTP/1.1 ") + code + emptyAnswer),
                  std::string("status ") + code);
}

TEST_F(DirectTransport, FollowsNoRedirect) {
    LoopbackHub other("HTTP/1.1 200" + emptyAnswer, LoopbackHub::Mood::Answers);
    EXPECT_EQ(exchange("HTTP/1.1 307 X\r\nContent-Length: 0\r\nLocation: http://" +
                       other.address() + "/\r\n\r\n"),
              "status 307");
    EXPECT_EQ(other.takeRequest(), "");
}

TEST_F(DirectTransport, GarbageIsAFailure) {
    EXPECT_NE(exchange("what do you want?\n"), "");
    EXPECT_NE(exchange(""), "");
    EXPECT_NE(exchange(std::string("\0\xff\r\n\r\n", 6)), "");
    EXPECT_NE(exchange("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"), "");
}

TEST_F(DirectTransport, NobodyThereIsAFailure) {
    std::string address;
    {
        const LoopbackHub hub("", LoopbackHub::Mood::Hangs);
        address = hub.address();
    }
    EXPECT_NE(transport->post(address, false, "{}", abandoned), "");
    EXPECT_NE(transport->post(address, true, "{}", abandoned), "");
}

TEST_F(DirectTransport, OddAddressesAreFailuresAndNoMore) {
    for (const char* address : {"", ":", "/", "://", "a b:1", "host:port", "127.0.0.1:99999",
                                "[::1", "[zz]:80", "file:///etc/passwd", "127.0.0.1:1\r\nX: y"})
        EXPECT_NE(transport->post(address, false, "{}", abandoned), "") << address;
}

TEST_F(DirectTransport, AddressMayBringAScheme) {
    LoopbackHub hub("HTTP/1.1 200" + emptyAnswer, LoopbackHub::Mood::Answers);
    EXPECT_EQ(transport->post("http://" + hub.address() + "/", true, "{}", abandoned), "");
    EXPECT_EQ(hub.takeRequest().find("POST /serviceprovider HTTP/1.1\r\n"), 0U);
}

TEST_F(DirectTransport, UsesNoProxyOfTheEnvironment) {
    LoopbackHub proxy("HTTP/1.1 200" + emptyAnswer, LoopbackHub::Mood::Answers);
    ::setenv("http_proxy", ("http://" + proxy.address()).c_str(), 1);
    EXPECT_EQ(exchange("HTTP/1.1 404" + emptyAnswer), "status 404");
    ::unsetenv("http_proxy");
    EXPECT_EQ(proxy.takeRequest(), "");
}

TEST_F(DirectTransport, PlainHubIsNoSecureOne) {
    LoopbackHub hub("HTTP/1.1 200" + emptyAnswer, LoopbackHub::Mood::Blurts);
    EXPECT_NE(transport->post(hub.address(), true, "{}", abandoned), "");
    EXPECT_EQ(hub.takeRequest().find("POST"), std::string::npos);
}

TEST_F(DirectTransport, HubThatHangsIsLeftAfterItsTime) {
    // The system takes the connection for the hub, which never looks at it.
    const LoopbackHub hub("", LoopbackHub::Mood::Hangs);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_NE(transport->post(hub.address(), false, "{}", abandoned), "");
    const auto taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken, std::chrono::milliseconds(4500));
    EXPECT_LT(taken, seconds(8));
}

TEST_F(DirectTransport, AbandonedExchangeEndsEarly) {
    LoopbackHub hub("", LoopbackHub::Mood::Hangs);
    std::thread owner([&] {
        hub.waitForCaller();
        abandoned = true;
    });
    EXPECT_EQ(transport->post(hub.address(), false, "{}", abandoned), "given up");
    owner.join();
}

/// Joins a group on this machine, by whatever interface a datagram to it takes.
class GroupListener {
public:
    explicit GroupListener(const std::string& group) {
        handle = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(handle, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(::getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port = ntohs(address.sin_port);
        bool joined = false;
        for (const std::uint32_t interface : {INADDR_ANY, INADDR_LOOPBACK}) {
            ip_mreq request{};
            EXPECT_EQ(::inet_pton(AF_INET, group.c_str(), &request.imr_multiaddr), 1);
            request.imr_interface.s_addr = htonl(interface);
            joined = ::setsockopt(handle, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request,
                                  sizeof request) == 0 ||
                     joined;
        }
        EXPECT_TRUE(joined);
    }
    ~GroupListener() { ::close(handle); }
    GroupListener(const GroupListener&) = delete;
    GroupListener& operator=(const GroupListener&) = delete;

    /// The next datagram; empty where none comes.
    std::string receive() const {
        pollfd waiting{handle, POLLIN, 0};
        if (::poll(&waiting, 1, patience) != 1)
            return "";
        std::string text(65536, '\0');
        const ssize_t got = ::recv(handle, &text[0], text.size(), 0);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }

    std::uint16_t port = 0;

private:
    int handle = -1;
};

TEST(MulticastTransport, ReachesTheGroupInOneDatagram) {
    const std::string group = "239.255.53.11";
    const GroupListener listener(group);
    const std::shared_ptr<OstrandHub::HubTransport> transport = OstrandHub::makeNetworkTransport();
    const std::string document = "{\n  \"Command\" : \"addServiceProvider\"\n}\n";
    // A time-to-live of 0 keeps it on this machine.
    EXPECT_EQ(
        transport->multicast(Portico::InetAddress::getByAddress(group), listener.port, 0, document),
        "");
    EXPECT_EQ(listener.receive(), document);
}

TEST(MulticastTransport, TellsWhyNothingLeft) {
    const std::shared_ptr<OstrandHub::HubTransport> transport = OstrandHub::makeNetworkTransport();
    EXPECT_NE(transport->multicast(Portico::InetAddress(), 5311, 0, "{}"), "");
    EXPECT_NE(transport->multicast(Portico::InetAddress::getByAddress("127.0.0.1"), 5311, 0, "{}"),
              "");
    EXPECT_NE(transport->multicast(Portico::InetAddress::getByAddress("239.255.53.11"), 5311, 0,
                                   std::string(100000, 'x')),
              "");
}

} // namespace

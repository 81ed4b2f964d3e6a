#include "platform/portico/support/RawClient.h"
#include "platform/portico/support/TestServer.h"

#include <arpa/inet.h>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Portico {
namespace {

using Support::RawClient;
using Support::TestServer;

/// A listening socket of somebody else.
class Stranger {
public:
    Stranger(int family, const char* address)
        : handle(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_storage any{};
        socklen_t size = 0;
        if (family == AF_INET6) {
            setsockopt(handle, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
            auto* const target = reinterpret_cast<sockaddr_in6*>(&any);
            target->sin6_family = AF_INET6;
            inet_pton(family, address, &target->sin6_addr);
            size = sizeof *target;
        } else {
            auto* const target = reinterpret_cast<sockaddr_in*>(&any);
            target->sin_family = AF_INET;
            inet_pton(family, address, &target->sin_addr);
            size = sizeof *target;
        }
        listens = bind(handle, reinterpret_cast<sockaddr*>(&any), size) == 0 &&
                  listen(handle, 1) == 0 &&
                  getsockname(handle, reinterpret_cast<sockaddr*>(&any), &size) == 0;
        port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&any)->sin6_port
                                        : reinterpret_cast<sockaddr_in*>(&any)->sin_port);
    }
    ~Stranger() { close(handle); }
    Stranger(const Stranger&) = delete;
    Stranger& operator=(const Stranger&) = delete;

    bool listens = false;
    unsigned short port = 0;

private:
    int handle;
};

/// What start() says of a port; "(started)" if it does not mind.
std::string refusal(unsigned short port) {
    TestServer test;
    try {
        test.server.start("", port, "", "");
    } catch (const ListenError& failure) {
        EXPECT_EQ(test.server.socketAddress.getServicePort(), 0);
        return failure.what();
    }
    return "(started)";
}

void expectBusy(unsigned short port) {
    EXPECT_EQ(refusal(port),
              "cannot listen on port " + std::to_string(port) + ": Address already in use");
}

TEST(ThreadedWebServerListen, noticesABusyPortInEitherFamily) {
    for (const char* address : {"0.0.0.0", "127.0.0.1"}) {
        const Stranger stranger(AF_INET, address);
        ASSERT_TRUE(stranger.listens);
        expectBusy(stranger.port);
    }
    for (const char* address : {"::", "::1"}) {
        const Stranger stranger(AF_INET6, address);
        if (stranger.listens)
            expectBusy(stranger.port);
    }
}

TEST(ThreadedWebServerListen, saysThatFilesAreLacking) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer opens a pipe to look at a thrown exception";
#endif
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(STDIN_FILENO);
    close(next);
    std::string answer;
    int refusals = 0;
    for (int files = next; files < next + 100; ++files) {
        const rlimit few{static_cast<rlim_t>(files), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        answer = refusal(0);
        setrlimit(RLIMIT_NOFILE, &before);
        if (answer == "(started)")
            break;
        ++refusals;
        EXPECT_EQ(answer, "cannot listen on port 0: Too many open files") << files;
    }
    EXPECT_EQ(answer, "(started)");
    EXPECT_GT(refusals, 3) << "a server needs files of several kinds";
}

TEST(ThreadedWebServerListen, sharesNoPortWithAnotherServer) {
    TestServer test;
    expectBusy(test.start());
    EXPECT_EQ(RawClient(test.port()).get("/hello").body, "hello");
}

TEST(ThreadedWebServerListen, bindsAPortAgainAtOnce) {
    unsigned short port = 0;
    for (int round = 0; round < 3; ++round) {
        TestServer test;
        test.server.start("", port, "", "");
        port = test.port();
        RawClient client(port);
        client.send("GET /hello HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n");
        EXPECT_EQ(client.reply().body, "hello");
        test.server.stop();
    }
}

TEST(ThreadedWebServerListen, tellsWhatItBound) {
    TestServer test;
    EXPECT_NE(test.start(), 0);
    EXPECT_TRUE(test.server.socketAddress.getAddress() == "::" ||
                test.server.socketAddress.getAddress() == "0.0.0.0");
}

std::set<int> openFiles() {
    std::set<int> files;
    for (const auto& entry : boost::filesystem::directory_iterator("/proc/self/fd"))
        files.insert(std::atoi(entry.path().filename().c_str()));
    return files;
}

TEST(ThreadedWebServerListen, lendsNoFileToChildProcesses) {
    const std::set<int> before = openFiles();
    TestServer test;
    RawClient client(test.start());
    EXPECT_EQ(client.get("/hello").code, 200);
    int looked = 0;
    for (const int file : openFiles()) {
        const int flags = fcntl(file, F_GETFD);
        if (before.count(file) > 0 || flags < 0)
            continue;
        ++looked;
        EXPECT_NE(flags & FD_CLOEXEC, 0)
            << boost::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file));
    }
    // Listening, accepted and the client's socket at least.
    EXPECT_GE(looked, 3);
}

TEST(ThreadedWebServerListen, addsTheHtmlHeaderToHtmlAlone) {
    TestServer plain;
    TestServer careful;
    careful.server.htmlHeader.appendParam("X-Added", "yes");
    for (TestServer* test : {&plain, &careful}) {
        test->page("/html", [](const auto&, auto& reply) {
            reply.header().setParam("Content-Type", "text/html");
            reply.body() = "<p>";
            return true;
        });
        test->page("/broken", [](const auto&, auto& reply) -> bool {
            reply.header().setParam("Content-Type", "text/html");
            throw std::runtime_error("broken");
        });
        RawClient client(test->start());
        EXPECT_EQ(client.get("/html").header("X-Added"), test == &careful ? "yes" : "(absent)");
        EXPECT_EQ(client.get("/hello").header("X-Added"), "(absent)");
        EXPECT_EQ(client.get("/broken").header("X-Added"), "(absent)");
        EXPECT_EQ(client.get("/unknown").header("X-Added"), "(absent)");
    }
}

} // namespace
} // namespace Portico

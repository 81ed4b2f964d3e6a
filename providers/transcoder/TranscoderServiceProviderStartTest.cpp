#include "providers/transcoder/TranscoderServiceProviderTest.h"

#include "platform/hub/FakeHub.h"
#include "platform/hub/HubClock.h"
#include "platform/hub/Icon.h"

#include <gtest/gtest.h>
#include <sstream>

namespace OstrandService {
namespace {

using Support::makeRequest;
using Support::ServerPages;

/// Port of the host that makes the delivery server take a free port: the next one is 0.
constexpr std::uint16_t lastPort = 65535;

class TranscoderStartTest : public TranscoderServiceProviderTest {
protected:
    TranscoderStartTest() {
        HostOptions::host().port = lastPort;
        HostOptions::host().listenThreads = 2;
        HostOptions::host().webServer.threadParams = {2, 30, 2, 15};
        provider->hubProvider.reset(new OstrandHubServiceProvider(
            folder.makeFolder("cache"), "G", false, hub, OstrandHub::makeSteadyClock()));
    }

    std::string start() {
        Support::OutputCapture capture;
        provider->start();
        return capture.output();
    }

    std::shared_ptr<FakeHub> hub = std::make_shared<FakeHub>();
};

TEST_F(TranscoderStartTest, TellsWhereResultsAreServed) {
    ASSERT_TRUE(init({"-t", "2"}));
    provider->addPages();
    const std::string line = start();
    const unsigned short port = deliveryServer().socketAddress.getServicePort();
    EXPECT_NE(port, 0);
    EXPECT_EQ(line, "OstrandServiceDelivery listening on port: " + std::to_string(port) +
                        " with : 2 threads\n");
    EXPECT_EQ(deliveryServer().threadParams.numThreads, 2u);
    EXPECT_EQ(deliveryServer().threadParams.idleSeconds, 30u);
    EXPECT_EQ(provider->workerThreads.size(), 2u);
    EXPECT_NE(provider->workerThreads[1], nullptr);
    EXPECT_TRUE(provider->running);
}

TEST_F(TranscoderStartTest, RegistersWithItsEntriesAndDeregisters) {
    TranscoderJobDesc::cmd_whitelist = {"fettle", "assimp"};
    TranscoderJobDesc::cookie_whitelist = {"sid"};
    ASSERT_TRUE(init({"-t", "0", "--delivery_service", "http://d:1"}));
    start();
    std::ostringstream head;
    provider->writeRegistrationHead(head, "TranscoderService");
    auto entry = TranscoderJobDesc::cmd_whitelist.begin();
    const std::string first = *entry++;
    const std::string second = *entry;
    const auto deliveries = hub->waitFor(1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].document, head.str() +
                                          ",\n\n"
                                          "    \"Delivery\"         : \"http://d:1\",\n"
                                          "    \"NumThreads\"       : 0,\n"
                                          "    \"transcoderConfig\" : \n"
                                          "    {\n"
                                          "      \"commandWhitelist\" : \n"
                                          "      [\n"
                                          "        \"" +
                                          first + "\", \"" + second +
                                          "\"\n"
                                          "      ],\n"
                                          "      \"envWhitelist\"  : \n"
                                          "      [\n"
                                          "\n"
                                          "      ],\n"
                                          "      \"cookieWhitelist\"  : \n"
                                          "      [\n"
                                          "        \"sid\"\n"
                                          "      ],\n"
                                          "      \"cookieAwareCommands\"  : \n"
                                          "      [\n"
                                          "\n"
                                          "      ]\n"
                                          "    }\n"
                                          "  }\n"
                                          "}\n");
    EXPECT_EQ(deliveries[0].address, "localhost:8080");
    EXPECT_FALSE(deliveries[0].ssl);
    EXPECT_FALSE(deliveries[0].multicast);

    destroy();
    const auto all = hub->waitFor(2);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].document,
              "{\"Command\":\"removeServiceProvider\",\"Group\":\"G\",\"ProviderId\":\"P\"}");
}

TEST_F(TranscoderStartTest, WritesEntriesUnescaped) {
    TranscoderJobDesc::cmd_whitelist = {"a\"b"};
    ASSERT_TRUE(init({"-t", "0"}));
    start();
    const auto deliveries = hub->waitFor(1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_NE(deliveries[0].document.find("\n        \"a\"b\"\n"), std::string::npos);
}

TEST_F(TranscoderStartTest, RegistersByMulticastAndForTlsWhenAsked) {
    HostOptions::host().ssl = true;
    HostOptions::host().sslCert = HostOptions::host().sslKey = "not used by the provider";
    ASSERT_TRUE(init({"-t", "0", "-m"}));
    start();
    const auto deliveries = hub->waitFor(1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_TRUE(deliveries[0].multicast);
    EXPECT_EQ(deliveries[0].address, "224.21.12.68:5311");
    EXPECT_NE(deliveries[0].document.find("    \"PortSSL\"     : 65534,\n"), std::string::npos);
}

TEST_F(TranscoderStartTest, RunsReloadedJobsOnceItHasStarted) {
    folder.write("cache/P/4/.meta", "{\"uid\":\"u\",\"commands\":[\"echo four\"]}");
    folder.write("cache/P/4/.status", "{ \"status\" : 1 }\n");
    ASSERT_TRUE(init());
    start();
    EXPECT_TRUE(waitForIdle());
    EXPECT_EQ(folder.read("cache/P/4/console.txt"), "four\n");
}

// The host ends the process in order then, so shutting down must work from here.
TEST_F(TranscoderStartTest, BusyPortIsAnErrorBeforeAnyWorkerRuns) {
    Portico::ThreadedWebServer other;
    other.start("", 0, "", "");
    HostOptions::host().port = static_cast<std::uint16_t>(other.socketAddress.getServicePort() - 1);
    ASSERT_TRUE(init());
    EXPECT_THROW(provider->start(), Portico::ListenError);
    EXPECT_FALSE(provider->running);
    for (const boost::thread* worker : provider->workerThreads)
        EXPECT_EQ(worker, nullptr);
    destroy();
    EXPECT_TRUE(hub->deliveries().empty());
    other.stop();
}

TEST_F(TranscoderStartTest, ShutdownWithoutStartIsHarmless) {
    ASSERT_TRUE(init());
    post("{\"uid\":\"u\",\"commands\":[\"true\"]}");
    destroy();
    EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 0 }\n");
    EXPECT_TRUE(hub->deliveries().empty());
}

class TranscoderRoutesTest : public TranscoderServiceProviderTest {
protected:
    static std::uint32_t ask(const Portico::WebServer& server, const std::string& method,
                             const std::string& uri, const std::string& body = "") {
        return ServerPages::ask(server, makeRequest(method, uri, body)).code;
    }

    const Portico::WebServer& plain = HostOptions::host().webServer;
    const Portico::WebServer& secure = HostOptions::host().sslWebServer;
};

TEST_F(TranscoderRoutesTest, AddsTwoRoutesToThePlainServer) {
    HostOptions::host().ssl = true;
    ASSERT_TRUE(init());
    provider->addPages();
    EXPECT_EQ(ask(plain, "POST", "/job/updateState", "{\"Parameters\":[]}"), 200u);
    EXPECT_EQ(ask(plain, "POST", "/config", "{}"), 200u);
    EXPECT_EQ(ask(plain, "GET", "/config"), 400u);
    EXPECT_EQ(ask(plain, "GET", "/"), 200u);
    EXPECT_EQ(ask(plain, "GET", "/statistics"), 404u);
    EXPECT_EQ(ask(secure, "POST", "/job/updateState", "{\"Parameters\":[]}"), 400u);
    EXPECT_EQ(ask(secure, "GET", "/job/updateState"), 400u);
    EXPECT_EQ(ask(secure, "POST", "/config", "{}"), 404u);
}

TEST_F(TranscoderRoutesTest, DeliveryServerHasTheIconAndTheCacheRoot) {
    ASSERT_TRUE(init());
    provider->addPages();
    folder.write("cache/P/1/index.x3d", "<X3D/>");
    folder.write("cache/favicon.ico", "not this one");
    const Portico::WebServer& server = deliveryServer();
    EXPECT_EQ(ServerPages::ask(server, makeRequest("GET", "/P/1/index.x3d")).body(), "<X3D/>");
    EXPECT_EQ(ServerPages::ask(server, makeRequest("GET", "/favicon.ico")).body(),
              std::string(OstrandHub::ostrandHub_icon_col_sans_ico, OstrandHub::iconSize));
    EXPECT_EQ(ask(server, "GET", "/"), 403u);
}

} // namespace
} // namespace OstrandService

#include "framework/ServiceProvider.h"

#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/kestrel/SysInfo.h"
#include "tests/support/HostOptions.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestProvider.h"

#include <gtest/gtest.h>
#include <sstream>

namespace OstrandService {
namespace {

using Support::HostOptions;
using Support::TestProvider;

class ServiceProviderHubTest : public ::testing::Test {
protected:
    ServiceProviderHubTest() {
        HostOptions::host().group = "G";
        HostOptions::host().port = 5000;
        HostOptions::host().host = "name";
        HostOptions::host().ssl = false;
        provider.providerId = "X";
    }

    /// Lines 5 to 14 of the document with these values.
    static std::string info(const std::string& service, const std::string& port,
                            const std::string& securePort) {
        const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
        return "  {\n"
               "    \"Service\"     : \"" +
               service +
               "\",\n"
               "    \"ProviderId\"  : \"X\",\n"
               "    \"Host\"        : \"" +
               HostOptions::host().host +
               "\",\n"
               "    \"MachineType\" : \"" +
               system.machineType +
               "\",\n"
               "    \"CPUs\"        : \"" +
               std::to_string(system.numCpus) +
               "\",\n"
               "    \"OS\"          : \"" +
               system.osName +
               "\",\n"
               "    \"Port\"        : " +
               port +
               ",\n"
               "    \"PortSSL\"     : " +
               securePort +
               ",\n"
               "    \"JobUri\"      : \"/job\"";
    }

    std::string writtenInfo() {
        std::ostringstream out;
        provider.writeProviderInfo(out, "S");
        return out.str();
    }

    HostOptions options;
    TestProvider provider;
};

TEST_F(ServiceProviderHubTest, WritesTheProvidersInfo) {
    EXPECT_EQ(writtenInfo(), info("S", "5000", "0"));
}

TEST_F(ServiceProviderHubTest, AnnouncesThePortBelowByTheFlagAlone) {
    HostOptions::host().ssl = true;
    EXPECT_EQ(writtenInfo(), info("S", "5000", "4999"));
    HostOptions::host().port = 0;
    EXPECT_EQ(writtenInfo(), info("S", "0", "65535"));
}

TEST_F(ServiceProviderHubTest, EscapesNothing) {
    HostOptions::host().host = "a\"b";
    EXPECT_EQ(writtenInfo(), info("S", "5000", "0"));
}

TEST_F(ServiceProviderHubTest, WritesHeadAndTail) {
    std::ostringstream head;
    provider.writeRegistrationHead(head, "TranscoderService");
    EXPECT_EQ(head.str(), "{\n"
                          "  \"Command\" : \"addServiceProvider\",\n"
                          "  \"Group\" : \"G\",\n"
                          "  \"ServiceProvider\" : \n" +
                              info("TranscoderService", "5000", "0"));
    std::ostringstream tail;
    provider.writeRegistrationTail(tail);
    EXPECT_EQ(tail.str(), "  }\n}\n");
}

/// A provider with a client, as init() leaves it, and no worker.
class ServiceProviderStartTest : public ::testing::Test {
protected:
    void start() {
        provider.hubProvider.reset(new OstrandHubServiceProvider(folder.path(), "G", false));
        provider.start();
    }

    HostOptions options;
    Support::TemporaryFolder folder;
    TestProvider provider;
};

TEST_F(ServiceProviderStartTest, GivesTheClientItsSettings) {
    HostOptions::host().mport = 6000;
    HostOptions::host().maddr = "224.1.2.3";
    HostOptions::host().mttl = -3;
    provider.regByMulticast = true;
    start();
    EXPECT_TRUE(provider.running);
    EXPECT_TRUE(provider.hubProvider->regByMulticast);
    EXPECT_EQ(provider.hubProvider->mcastPort, 6000);
    EXPECT_EQ(provider.hubProvider->mcastTtl, -3);
    EXPECT_EQ(provider.hubProvider->getAddress().toString(), "224.1.2.3");
    EXPECT_EQ(provider.hubProvider->refreshInterval, 0);
    provider.shutdown();
}

TEST_F(ServiceProviderStartTest, PassesTheLowBitsOfTheInterval) {
    const std::pair<std::int32_t, std::int32_t> cases[] = {
        {0, 0}, {30, 30}, {65535, 65535}, {65536, 0}, {70000, 4464}, {-1, 65535}};
    for (const auto& [given, passed] : cases) {
        HostOptions::host().refresh = given;
        start();
        EXPECT_EQ(provider.hubProvider->refreshInterval, passed) << given;
        provider.shutdown();
    }
}

TEST_F(ServiceProviderStartTest, ABadGroupAddressIsNoFailure) {
    HostOptions::host().maddr = "no address";
    start();
    EXPECT_TRUE(provider.running);
    provider.shutdown();
}

TEST_F(ServiceProviderStartTest, ShutdownDropsTheClientAndSaysSo) {
    start();
    Support::OutputCapture capture;
    provider.shutdown();
    EXPECT_EQ(capture.errors(), "shutting down threads\n");
    EXPECT_EQ(capture.output(), "");
    EXPECT_FALSE(provider.hubProvider);
    EXPECT_FALSE(provider.running);
}

TEST_F(ServiceProviderStartTest, ShutdownWithoutAClientStillStopsTheWorkers) {
    provider.workerThreads.resize(2, nullptr);
    start();
    provider.hubProvider.reset();
    Support::OutputCapture capture;
    provider.shutdown();
    EXPECT_EQ(capture.errors(), "shutting down threads\n");
    EXPECT_EQ(provider.workerThreads.size(), 2u);
    EXPECT_EQ(provider.workerThreads[0], nullptr);
    EXPECT_EQ(provider.workerThreads[1], nullptr);
}

TEST_F(ServiceProviderStartTest, ShutdownTwiceOrWithoutStartIsHarmless) {
    provider.workerThreads.resize(2, nullptr);
    provider.shutdown();
    provider.shutdown();
    EXPECT_FALSE(provider.running);
}

} // namespace
} // namespace OstrandService

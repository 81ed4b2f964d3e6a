#include "platform/hub/OstrandHubServiceProvider.h"

#include "platform/hub/FakeHub.h"
#include "platform/hub/Json.h"
#include "platform/hub/TestFolder.h"
#include "platform/hub/Uuid.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// The client's identifier for a cache root.
std::string identifier(const std::string& root, bool shortId = false) {
    return OstrandHubServiceProvider(root, "G", shortId).getUUID();
}

TEST(HubIdentifier, IsKeptInTheCacheRoot) {
    const TestFolder root;
    const std::string id = identifier(root.path());
    EXPECT_TRUE(OstrandHub::isUuid(id));
    EXPECT_EQ(id.find_first_of("ABCDEF"), std::string::npos);
    EXPECT_EQ(root.read(".serviceid"), id + "\n");
    EXPECT_EQ(identifier(root.path()), id);
    EXPECT_EQ(root.size(), 1U);
}

TEST(HubIdentifier, ShortFormIsItsBeginningAndTheFileKeepsTheWhole) {
    const TestFolder root;
    const std::string shortId = identifier(root.path(), true);
    EXPECT_EQ(shortId.size(), 8U);
    const std::string id = identifier(root.path());
    EXPECT_EQ(shortId, id.substr(0, 8));
    EXPECT_EQ(root.read(".serviceid"), id + "\n");
}

TEST(HubIdentifier, ReadsAUuidInUpperCaseAndWithoutALineEnd) {
    const TestFolder root;
    root.write(".serviceid", "0123ABCD-89EF-4000-8000-0123456789AB");
    EXPECT_EQ(identifier(root.path()), "0123abcd-89ef-4000-8000-0123456789ab");
}

TEST(HubIdentifier, FileWithoutAUuidIsReplaced) {
    for (const char* text : {"", "\n", "abc", "../../0123abcd-89ef-4000-8000-0123456789ab",
                             "0123abcd-89ef-4000-8000-0123456789ab x"}) {
        const TestFolder root;
        root.write(".serviceid", text);
        const std::string id = identifier(root.path());
        EXPECT_TRUE(OstrandHub::isUuid(id)) << text;
        EXPECT_EQ(root.read(".serviceid"), id + "\n") << text;
    }
}

TEST(HubIdentifier, WhatAnOperatorMustKnowIsToldOnStandardError) {
    const TestFolder root;
    testing::internal::CaptureStderr();
    identifier(root.path());
    identifier(root.path());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    root.write(".serviceid", "abc");
    testing::internal::CaptureStderr();
    identifier(root.path());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "service id made anew: no readable one in " + root.path(".serviceid") + "\n");
    // Whoever makes the folders tells of a root that is none.
    testing::internal::CaptureStderr();
    identifier(root.path("missing"));
    identifier(root.path(".serviceid"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    std::filesystem::remove(root.path(".serviceid"));
    std::filesystem::create_directory(root.path(".serviceid"));
    testing::internal::CaptureStderr();
    identifier(root.path());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "service id made anew: no readable one in " + root.path(".serviceid") +
                  "\nservice id not kept: cannot write " + root.path(".serviceid") + "\n");
}

TEST(HubIdentifier, FifoInItsPlaceIsReplaced) {
    const TestFolder root;
    ASSERT_EQ(::mkfifo(root.path(".serviceid").c_str(), 0600), 0);
    const std::string id = identifier(root.path());
    EXPECT_EQ(root.read(".serviceid"), id + "\n");
}

TEST(HubIdentifier, RootThatCannotBeWrittenIsNoError) {
    const TestFolder root;
    root.write("file", "");
    EXPECT_TRUE(OstrandHub::isUuid(identifier(root.path("file"))));
    EXPECT_TRUE(OstrandHub::isUuid(identifier(root.path("missing"))));
    std::filesystem::create_directory(root.path(".serviceid"));
    EXPECT_TRUE(OstrandHub::isUuid(identifier(root.path())));
    EXPECT_TRUE(std::filesystem::is_directory(root.path(".serviceid")));
}

class HubClient : public testing::Test {
protected:
    HubClient() {
        client = std::make_unique<OstrandHubServiceProvider>(root.path(), "G", false, hub, clock);
        client->setRegIPAddress("hub:8080");
    }
    ~HubClient() override {
        hub->release();
        client.reset();
        EXPECT_TRUE(hub->waitForRest());
    }

    std::string deregistration(const std::string& group = "G") const {
        return R"({"Command":"removeServiceProvider","Group":")" + group + R"(","ProviderId":")" +
               client->getUUID() + R"("})";
    }

    const TestLog log;
    const TestFolder root;
    const std::shared_ptr<FakeHub> hub = std::make_shared<FakeHub>();
    const std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    std::unique_ptr<OstrandHubServiceProvider> client;
};

TEST_F(HubClient, HasItsDefaults) {
    EXPECT_EQ(client->refreshInterval, 0);
    EXPECT_FALSE(client->regByMulticast);
    EXPECT_TRUE(client->open());
}

TEST_F(HubClient, RegistersDirectly) {
    EXPECT_TRUE(client->addServiceProvider("{document}", true));
    const std::vector<FakeHub::Delivery> got = hub->waitFor(1);
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got[0].document, "{document}");
    EXPECT_EQ(got[0].address, "hub:8080");
    EXPECT_TRUE(got[0].ssl);
    EXPECT_FALSE(got[0].multicast);
}

TEST_F(HubClient, RegistersByMulticast) {
    client->regByMulticast = true;
    client->mcastPort = 4711;
    client->mcastTtl = 7;
    EXPECT_TRUE(client->setAddress(Portico::InetAddress::getByAddress("239.1.2.3")));
    EXPECT_TRUE(client->addServiceProvider("{document}", true));
    const std::vector<FakeHub::Delivery> got = hub->waitFor(1);
    ASSERT_EQ(got.size(), 1U);
    EXPECT_TRUE(got[0].multicast);
    EXPECT_EQ(got[0].document, "{document}");
    EXPECT_EQ(got[0].address, "239.1.2.3:4711");
    EXPECT_EQ(got[0].ttl, 7);
}

TEST_F(HubClient, RegistersByMulticastWhereNothingWasSet) {
    OstrandHubServiceProvider plain(root.path(), "G", false, hub, clock);
    EXPECT_TRUE(plain.addServiceProvider("{document}", false));
    const std::vector<FakeHub::Delivery> got = hub->waitFor(1);
    ASSERT_EQ(got.size(), 1U);
    EXPECT_TRUE(got[0].multicast);
}

TEST_F(HubClient, DeregistersTheWayItRegistered) {
    client->addServiceProvider("{document}", false);
    EXPECT_TRUE(client->removeServiceProvider(true));
    const std::vector<FakeHub::Delivery> got = hub->deliveries();
    ASSERT_EQ(got.size(), 2U);
    EXPECT_EQ(got[0].document, "{document}");
    EXPECT_EQ(got[1].document, deregistration());
    EXPECT_TRUE(got[1].ssl);
}

TEST_F(HubClient, DeregistrationIsEscaped) {
    OstrandHubServiceProvider quoted(root.path(), "a\"b\\", false, hub, clock);
    quoted.setRegIPAddress("hub:8080");
    quoted.addServiceProvider("{}", false);
    EXPECT_TRUE(quoted.removeServiceProvider(false));
    const std::string document = hub->deliveries().at(1).document;
    EXPECT_EQ(document, deregistration("a\\\"b\\\\"));
    picojson::value value;
    ASSERT_TRUE(OstrandHub::parseJson(document, value));
    EXPECT_EQ(value.get("Group").get<std::string>(), "a\"b\\");
}

TEST_F(HubClient, DeregistersTheIdentifierOfTheDocument) {
    client->addServiceProvider("{\n  \"Group\" : \"ProviderId\",\n"
                               "    \"ProviderId\"  : \"x\"y\\\",\n"
                               "    \"Host\" : \"h\",\n"
                               "      [\n        \"ProviderId\", \"b\"\n      ]\n}\n",
                               false);
    EXPECT_TRUE(client->removeServiceProvider(false));
    EXPECT_EQ(hub->deliveries().at(1).document,
              R"({"Command":"removeServiceProvider","Group":"G","ProviderId":"x\"y\\"})");
}

TEST_F(HubClient, DeregistersOnlyWhatWasRegisteredAndOnce) {
    EXPECT_TRUE(client->removeServiceProvider(false));
    EXPECT_TRUE(hub->deliveries().empty());
    client->addServiceProvider("{}", false);
    EXPECT_TRUE(client->removeServiceProvider(false));
    EXPECT_TRUE(client->removeServiceProvider(false));
    EXPECT_EQ(hub->deliveries().size(), 2U);
    client->close();
    EXPECT_TRUE(client->removeServiceProvider(false));
    EXPECT_EQ(hub->deliveries().size(), 2U);
}

TEST_F(HubClient, RenewsAtTheInterval) {
    client->refreshInterval = 60;
    client->addServiceProvider("{document}", false);
    hub->waitFor(1);
    clock->waitForLooks();
    clock->advance(seconds(60) - milliseconds(1));
    clock->waitForLooks();
    EXPECT_EQ(hub->deliveries().size(), 1U);
    clock->advance(milliseconds(1));
    EXPECT_EQ(hub->waitFor(2).at(1).document, "{document}");
    clock->waitForLooks();
    clock->advance(seconds(60));
    EXPECT_EQ(hub->waitFor(3).at(2).document, "{document}");
}

TEST_F(HubClient, RenewsAlsoWhereTheHubWasAway) {
    hub->answer("refused");
    client->refreshInterval = 1;
    client->addServiceProvider("{document}", false);
    hub->waitFor(1);
    clock->waitForLooks();
    clock->advance(seconds(1));
    EXPECT_EQ(hub->waitFor(2).size(), 2U);
    clock->waitForLooks();
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"hub hub:8080: refused", "hub hub:8080: refused"}));
}

TEST_F(HubClient, DoesNotRenewWithoutAnIntervalNorAfterDeregistration) {
    client->addServiceProvider("{once}", false);
    hub->waitFor(1);
    clock->advance(seconds(1000000));
    client->refreshInterval = 60;
    client->addServiceProvider("{again}", false);
    hub->waitFor(2);
    clock->waitForLooks();
    EXPECT_TRUE(client->removeServiceProvider(false));
    clock->advance(seconds(1000000));
    client->refreshInterval = 0;
    client->addServiceProvider("{last}", false);
    const std::vector<FakeHub::Delivery> got = hub->waitFor(4);
    ASSERT_EQ(got.size(), 4U);
    EXPECT_EQ(got[2].document, deregistration());
    EXPECT_EQ(got[3].document, "{last}");
}

TEST_F(HubClient, FailureIsOneLineOfTheLog) {
    hub->answer("no route");
    EXPECT_TRUE(client->addServiceProvider("{}", false));
    EXPECT_FALSE(client->removeServiceProvider(false));
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"hub hub:8080: no route", "hub hub:8080: no route"}));
}

TEST_F(HubClient, HubThatHangsDelaysNeitherStartNorEnd) {
    hub->hang(true);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(client->addServiceProvider("{}", false));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(1));
    hub->waitFor(1);
    EXPECT_FALSE(client->removeServiceProvider(false));
    EXPECT_TRUE(client->close());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(4));
    // The thread still hangs, with the client gone; the fixture releases it.
    client.reset();
    EXPECT_EQ(hub->deliveries().size(), 1U);
}

TEST_F(HubClient, SlowHubIsToldOfTheEndAllTheSame) {
    hub->hang(false);
    client->addServiceProvider("{}", false);
    hub->waitFor(1);
    // The registration is given up for the deregistration, which the hub then takes.
    std::thread hubThatWakes([this] {
        hub->waitFor(2);
        hub->release();
    });
    EXPECT_TRUE(client->removeServiceProvider(false));
    hubThatWakes.join();
    EXPECT_EQ(hub->deliveries().at(1).document, deregistration());
}

TEST_F(HubClient, CloseGivesUpWhatIsUnderWay) {
    hub->hang(false);
    hub->answer("given up");
    client->addServiceProvider("{}", false);
    hub->waitFor(1);
    EXPECT_TRUE(client->close());
    EXPECT_TRUE(client->close());
    // The thread was joined, so its line is there.
    EXPECT_EQ(log.lines(), std::vector<std::string>{"hub hub:8080: given up"});
}

TEST_F(HubClient, CanRegisterAnewAfterClose) {
    client->addServiceProvider("{one}", false);
    hub->waitFor(1);
    client->close();
    client->addServiceProvider("{two}", false);
    EXPECT_EQ(hub->waitFor(2).at(1).document, "{two}");
}

} // namespace

#include "providers/legacy/TranscoderLegacyServiceProviderTest.h"

#include "platform/kestrel/SysInfo.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::makeRequest;

class LegacyReconfigurationTest : public TranscoderLegacyServiceProviderTest {
protected:
    /// The address that clients are told after this request.
    std::string delivery(const std::string& json) {
        const Reply reply = reconfigure(json);
        EXPECT_EQ(reply.code, 200u) << json;
        EXPECT_EQ(reply.body(), "") << json;
        EXPECT_TRUE(hasCors(reply)) << json;
        EXPECT_EQ(reply.header().entries().size(), 2u) << json;
        return state().getDeliveryService();
    }

    const std::string machine = Kestrel::SysInfo::the().hostName();
};

TEST_F(LegacyReconfigurationTest, RebuildsTheDeliveryAddress) {
    ASSERT_TRUE(init({"-t", "0", "--delivery_service", "http://front"}));
    EXPECT_EQ(delivery("{}"), "http://front");
    EXPECT_EQ(delivery("{\"deliveryLocalhost\":1}"), "http://front") << "of no effect alone";
    EXPECT_EQ(delivery("{\"deliveryPort\":80}"), "http://" + machine + ":80");
    EXPECT_EQ(delivery("{\"deliveryPort\":80.9}"), "http://" + machine + ":80");
    EXPECT_EQ(delivery("{\"deliveryPort\":-1.5}"), "http://" + machine + ":-1");
    EXPECT_EQ(delivery("{\"deliveryPort\":70000}"), "http://" + machine + ":70000");
    for (const char* text : {"\"80\"", "null", "true", "[80]", "{}"}) {
        EXPECT_EQ(delivery(std::string("{\"deliveryPort\":") + text + "}"),
                  "http://" + machine + ":");
    }
    EXPECT_EQ(delivery("{\"deliveryProto\":\"https\"}"), "https://" + machine + ":4712");
    for (const char* text : {"1", "null", "true", "[\"https\"]"}) {
        EXPECT_EQ(delivery(std::string("{\"deliveryProto\":") + text + "}"),
                  "http://" + machine + ":4712");
    }
    EXPECT_EQ(delivery("{\"deliveryProto\":\"\"}"), "://" + machine + ":4712");
}

TEST_F(LegacyReconfigurationTest, TellsTheOptionsPortAgainWhereTheRequestNamesNone) {
    ASSERT_TRUE(init({"-t", "0", "--delivery_service", "http://front", "--delivery_port", "8080"}));
    EXPECT_EQ(delivery("{}"), "http://front");
    EXPECT_EQ(delivery("{\"deliveryProto\":\"https\"}"), "https://" + machine + ":8080");
}

TEST_F(LegacyReconfigurationTest, LocalhostIsANumberThatCutIsOne) {
    ASSERT_TRUE(init());
    const auto host = [&](const std::string& value) {
        return delivery("{\"deliveryPort\":1,\"deliveryLocalhost\":" + value + "}");
    };
    EXPECT_EQ(host("1"), "http://localhost:1");
    EXPECT_EQ(host("1.9"), "http://localhost:1");
    for (const char* other : {"true", "\"1\"", "0", "2", "-1", "0.9", "null", "1e300"})
        EXPECT_EQ(host(other), "http://" + machine + ":1") << other;
}

TEST_F(LegacyReconfigurationTest, EndsWithTwoHundredAndNothingAppliedWhereTheRequestIsNoOne) {
    ASSERT_TRUE(init({"-t", "1", "--delivery_service", "http://front"}));
    const std::string wish = "\"threads\":2,\"clearCache\":true,\"deliveryPort\":1";
    submit("u");
    for (const std::string& body :
         {std::string(), std::string("{"), std::string("text"), "[{" + wish + "}]",
          std::string("1"), "{" + wish, "{" + wish + ",}", std::string(1000000, '[')}) {
        EXPECT_EQ(delivery(body), "http://front") << body.substr(0, 80);
        EXPECT_EQ(errors, "");
    }
    for (const char* method : {"GET", "PUT", "DELETE", "OPTIONS", "HEAD", "post"}) {
        const Reply reply = ask(makeRequest(method, "/reconfig", "{" + wish + "}"));
        EXPECT_EQ(reply.code, 200u) << method;
        EXPECT_EQ(reply.body(), "") << method;
        EXPECT_TRUE(hasCors(reply)) << method;
    }
    EXPECT_EQ(state().getDeliveryService(), "http://front");
    EXPECT_EQ(workers(), 1u);
    EXPECT_EQ(store().maxJobId(), 1u);
}

TEST_F(LegacyReconfigurationTest, ListensToTheNameThatTheHubKnows) {
    ASSERT_TRUE(init({"-t", "0", "--delivery_service", "http://front"}));
    const std::pair<const char*, const char*> wrong[] = {
        {"\"TranscoderLegacyService\"", "TranscoderLegacyService"},
        {"\"%s%n\"", "%s%n"},
        {"\"\"", ""},
        {"1", "1"},
        {"null", "null"},
        {"true", "true"},
        {"[]", "array"},
        {"{}", "object"}};
    for (const auto& name : wrong) {
        EXPECT_EQ(delivery(std::string("{\"deliveryPort\":1,\"threads\":1,\"service\":") +
                           name.first + "}"),
                  "http://front");
        EXPECT_EQ(errors, std::string("looking for wrong service : ") + name.second + "\n");
        EXPECT_EQ(workers(), 0u);
    }
    EXPECT_EQ(delivery("{\"service\":\"TranscoderService\",\"deliveryPort\":1}"),
              "http://" + machine + ":1");
}

TEST_F(LegacyReconfigurationTest, ReplacesTheWorkers) {
    ASSERT_TRUE(init({"-t", "3"}));
    for (const auto& step : {std::pair<int, int>{3, 5}, {5, 5}, {5, 1}, {1, 3}}) {
        reconfigure("{\"threads\":" + std::to_string(step.second) + ".9}");
        EXPECT_EQ(errors, "from " + std::to_string(step.first) + " threads to " +
                              std::to_string(step.second) + " threads\nat " +
                              std::to_string(step.second) + " threads to " +
                              std::to_string(step.second) + " threads\n");
        EXPECT_EQ(workers(), static_cast<std::size_t>(step.second));
        EXPECT_EQ(state().workerCount, 3);
        EXPECT_NE(page("/", "text/html").find("<li>Worker threads: 3</li>"), std::string::npos);
    }
}

TEST_F(LegacyReconfigurationTest, LeavesTheWorkersAloneForNumbersThatAreNone) {
    ASSERT_TRUE(init({"-t", "1"}));
    for (const char* number : {"0", "-1", "0.9", "-1e300", "\"2\"", "true", "null", "[2]"}) {
        const Reply reply = reconfigure(std::string("{\"threads\":") + number + "}");
        EXPECT_EQ(reply.code, 200u) << number;
        EXPECT_EQ(errors, "") << number;
        EXPECT_EQ(workers(), 1u) << number;
    }
    for (const char* number : {"4097", "1e300"}) {
        EXPECT_EQ(reconfigure(std::string("{\"threads\":") + number + "}").code, 200u);
        EXPECT_EQ(errors, "") << number;
        EXPECT_EQ(workers(), 1u) << number;
    }
    EXPECT_TRUE(logged("reconfiguration: too many threads: 4097"));
    EXPECT_TRUE(logged("reconfiguration: too many threads: 2147483647"));
}

TEST_F(LegacyReconfigurationTest, ClearsJobsAndTheirFolders) {
    ASSERT_TRUE(init({"-t", "0", "--providerid", "P"}));
    submit("u");
    submit("v");
    setState(2, LegacyJobStates::error);
    folder.write("cache/7/.meta", "");
    folder.write("cache/7/deep/down/file", "");
    folder.makeFolder("cache/+9/.meta");
    folder.write("cache/-9/.meta", "");
    folder.write("cache/007/.meta", "");
    folder.makeFolder("cache/8");
    folder.write("cache/abc/.meta", "");
    folder.write("cache/4294967296/.meta", "");
    folder.write("cache/10", "a file");
    folder.write("aside/.meta", "");
    ASSERT_EQ(::symlink("../aside", folder.path("cache/11").c_str()), 0);
    EXPECT_EQ(reconfigure("{\"clearCache\":true}").code, 200u);
    EXPECT_EQ(output, "clearing cache: ");
    for (const char* gone : {"1", "2", "7", "+9", "-9", "007", "11"}) {
        const std::string path = folder.path(std::string("cache/") + gone);
        EXPECT_FALSE(boost::filesystem::exists(path)) << gone;
        EXPECT_NE(errors.find("clear cache " + path + " | " + gone + "\n" + "really delete it " +
                              path + "\n"),
                  std::string::npos)
            << gone;
    }
    for (const char* left : {"8", "abc", "4294967296", "in", "P"}) {
        const std::string path = folder.path(std::string("cache/") + left);
        EXPECT_TRUE(boost::filesystem::exists(path)) << left;
        EXPECT_NE(errors.find("clear cache " + path + " | " + left + "\n"), std::string::npos);
        EXPECT_EQ(errors.find("really delete it " + path + "\n"), std::string::npos) << left;
    }
    EXPECT_TRUE(folder.has("cache/10"));
    EXPECT_EQ(errors.find("cache/10"), std::string::npos) << "plain files are not named";
    EXPECT_TRUE(folder.has("aside/.meta")) << "of a link the link alone goes";
    EXPECT_EQ(store().maxJobId(), 0u);
    EXPECT_EQ(store().numJobsTotal(), 0u);
    EXPECT_EQ(store().numJobsFailed(), 0u);
    EXPECT_EQ(submit("u"), 1u);
}

TEST_F(LegacyReconfigurationTest, ClearsForTheBooleanAlone) {
    ASSERT_TRUE(init());
    submit("u");
    for (const char* value : {"false", "1", "\"true\"", "null", "[true]", "{}"}) {
        reconfigure(std::string("{\"clearCache\":") + value + "}");
        EXPECT_EQ(output + errors, "") << value;
        EXPECT_EQ(store().maxJobId(), 1u) << value;
    }
}

TEST_F(LegacyReconfigurationTest, ACacheThatHasGoneIsClearedInSilence) {
    ASSERT_TRUE(init());
    submit("u");
    boost::filesystem::remove_all(folder.path("cache"));
    EXPECT_EQ(reconfigure("{\"clearCache\":true}").code, 200u);
    EXPECT_EQ(output + errors, "");
    EXPECT_EQ(store().maxJobId(), 0u);
}

TEST_F(LegacyReconfigurationTest, TakesThreadsThenCacheThenDelivery) {
    ASSERT_TRUE(init({"-t", "1"}));
    submit("u");
    reconfigure("{\"deliveryPort\":1,\"clearCache\":true,\"threads\":2}");
    const std::size_t replaced = errors.find("at 2 threads to 2 threads\n");
    const std::size_t cleared = errors.find("clear cache ");
    EXPECT_NE(replaced, std::string::npos);
    EXPECT_NE(cleared, std::string::npos);
    EXPECT_LT(replaced, cleared);
    EXPECT_EQ(state().getDeliveryService(), "http://" + machine + ":1");
}

TEST_F(LegacyReconfigurationTest, RequestsAtOnceAreServedOneByOne) {
    ASSERT_TRUE(init({"-t", "2"}));
    Support::OutputCapture capture;
    std::vector<std::thread> clients;
    clients.reserve(4);
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([i] {
            const std::string text = "{\"threads\":" + std::to_string(i + 1) +
                                     ",\"clearCache\":true,\"deliveryPort\":1}";
            EXPECT_EQ(ask(makeRequest("POST", "/reconfig", text)).code, 200u);
        });
    }
    for (std::thread& client : clients)
        client.join();
    const std::string text = capture.errors();
    // Each request finds what the one before it has left.
    std::size_t present = 2;
    std::size_t at = 0;
    for (int i = 0; i < 4; ++i) {
        at = text.find("from ", at);
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(std::stoul(text.substr(at + 5)), present) << text;
        at = text.find("at ", at);
        present = std::stoul(text.substr(at + 3));
    }
    EXPECT_EQ(workers(), present);
}

TEST_F(LegacyReconfigurationTest, RegistersOnce) {
    ASSERT_TRUE(init());
    EXPECT_EQ(state().hubClient, nullptr);
    registerWithHub();
    const OstrandHubServiceProvider* const client = state().hubClient;
    ASSERT_NE(client, nullptr);
    registerWithHub();
    EXPECT_EQ(state().hubClient, client);
    EXPECT_EQ(folder.read("cache/.serviceid"), state().serviceId() + "\n");
}

TEST_F(LegacyReconfigurationTest, RegistersWithTheWholeIdentifierAndTheHostsSettings) {
    HostOptions::host().refresh = 65536 + 7;
    HostOptions::host().mport = 1234;
    ASSERT_TRUE(init({"-t", "0", "--shortuuid", "--mcastreg", "--ipreg", "localhost:1"}));
    registerWithHub();
    const OstrandHubServiceProvider& client = *state().hubClient;
    EXPECT_EQ(client.getUUID().size(), 36u);
    EXPECT_EQ(baseCachePath(), folder.path("cache/" + client.getUUID().substr(0, 8)));
    EXPECT_EQ(client.refreshInterval, 7);
    EXPECT_EQ(client.mcastPort, 1234);
    EXPECT_EQ(client.mcastTtl, 0);
    EXPECT_EQ(client.getAddress().toString(), "239.255.77.77");
    EXPECT_FALSE(client.regByMulticast) << "without an address it is the way all the same";
}

TEST_F(LegacyReconfigurationTest, AnAddressThatIsNoneIsALineInTheLog) {
    HostOptions::host().maddr = "nonsense";
    ASSERT_TRUE(init());
    registerWithHub();
    EXPECT_EQ(state().serviceId().size(), 36u);
    destroy();
    EXPECT_NE(log().find("Z hub "), std::string::npos);
}

TEST_F(LegacyReconfigurationTest, EndsWithMoreWorkersThanItBeganWith) {
    ASSERT_TRUE(init({"-t", "1"}));
    reconfigure("{\"threads\":4}");
    destroy();
    EXPECT_EQ(LegacyState::current, nullptr);
}

} // namespace
} // namespace OstrandService

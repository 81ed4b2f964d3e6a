#include "providers/transcoder/TranscoderServiceProviderTest.h"

#include "platform/hub/MessageLog.h"
#include "platform/kestrel/SysInfo.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::headerOf;
using Support::makeRequest;

class TranscoderInitTest : public TranscoderServiceProviderTest {};

TEST_F(TranscoderInitTest, HasItsDefaults) {
    EXPECT_EQ(provider->logPath, "./transcoder/log");
    EXPECT_EQ(provider->cachePath, "./transcoder/cache");
    EXPECT_EQ(tableSize(), 1u);
    EXPECT_FALSE(job(0));
    EXPECT_EQ(workerCount(), 3u);
    EXPECT_EQ(deliveryPort(), 0u);
    EXPECT_EQ(fettlePath(), "fettle.exe");
    EXPECT_EQ(deliveryUrl(), "");
}

TEST_F(TranscoderInitTest, SetsUpTheLogWithItsPath) {
    provider->logPath = folder.path("elsewhere");
    provider->setupLogging();
    EXPECT_EQ(MessageLog::getLogPath(), folder.path("elsewhere"));
    EXPECT_FALSE(folder.has("elsewhere"));
}

TEST_F(TranscoderInitTest, AddsItsOptionsBehindTheBases) {
    boost::program_options::options_description desc;
    provider->addOptions(desc);
    Words names;
    for (const auto& option : desc.options())
        names.push_back(option->format_name() + "|" + option->format_parameter() + "|" +
                        option->description());
    ASSERT_EQ(names.size(), 15u);
    names.erase(names.begin(), names.begin() + 6);
    EXPECT_EQ(names,
              (Words{"--fettle_path|arg|fettle executable path (default is \"fettle.exe\" on "
                     "Windows, \"fettle\" on Linux)",
                     "--delivery_service|arg|HTTP address of delivery service",
                     "--external_ip|arg|HTTP address of delivery service",
                     "--delivery_port|arg|HTTP port of the delivery service",
                     "-t [ --worker_threads ]|arg|Number of worker threads, default is 3",
                     "--delivery-cert|arg|ssl certificate filename.",
                     "--delivery-key|arg|ssl key filename.",
                     "--replyorigin||create a origin based sec cmd reply on the same host",
                     "--disable_url_decode||Disables URL decoding of job URIs."}));
}

TEST_F(TranscoderInitTest, FormsTheDeliveryAddress) {
    ASSERT_TRUE(init());
    EXPECT_EQ(deliveryUrl(), "http://name:4712");
    EXPECT_EQ(errors, "mcast reg : 0\nip reg : localhost:8080\ninit with config file : " +
                          folder.path("hub") + "/config/transcoderconfig.json\n");
    ASSERT_TRUE(restart({"--delivery_port", "9000"}));
    EXPECT_EQ(deliveryUrl(), "http://name:9000");
    ASSERT_TRUE(restart({"--delivery_service", "anything at all"}));
    EXPECT_EQ(deliveryUrl(), "anything at all");
}

TEST_F(TranscoderInitTest, ReadsTheConfigurationFile) {
    folder.write("hub/config/transcoderconfig.json",
                 "{\"commandWhitelist\":[\"a\"],\"envWhitelist\":[\"B\"],"
                 "\"cookieWhitelist\":[\"c\"],\"cookieAwareCommands\":[\"d\"]}");
    ASSERT_TRUE(init());
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, Support::Whitelists::Texts{"a"});
    EXPECT_EQ(TranscoderJobDesc::env_whitelist, Support::Whitelists::Texts{"B"});
    EXPECT_EQ(TranscoderJobDesc::cookie_whitelist, Support::Whitelists::Texts{"c"});
    EXPECT_EQ(TranscoderJobDesc::cookieAwareCmds, Support::Whitelists::Texts{"d"});
}

TEST_F(TranscoderInitTest, RefusesAConfigurationThatCannotBeUsed) {
    for (const char* text : {"", " \n", "text", "{", "{} x", "{\"a\":1e999}"}) {
        folder.write("hub/config/transcoderconfig.json", text);
        EXPECT_FALSE(init()) << text;
        EXPECT_EQ(output, "") << text;
        destroy();
        provider = new TranscoderServiceProvider;
    }
    boost::filesystem::remove(folder.path("hub/config/transcoderconfig.json"));
    folder.makeFolder("hub/config/transcoderconfig.json");
    EXPECT_FALSE(init());
}

TEST_F(TranscoderInitTest, TakesAConfigurationThatIsNoObject) {
    folder.write("hub/config/transcoderconfig.json", "[1]");
    EXPECT_TRUE(init());
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, Support::Whitelists::Texts{"*"});
}

TEST_F(TranscoderInitTest, FailsWithTheBase) {
    folder.write("log", "no folder");
    folder.write("cache", "no folder");
    EXPECT_FALSE(init());
    EXPECT_EQ(errors, "");
    EXPECT_EQ(deliveryUrl(), "");
}

TEST_F(TranscoderInitTest, OriginRepliesAreTheDefaultOfBatchesOnlyWhenAsked) {
    ASSERT_TRUE(init());
    EXPECT_EQ(TranscoderJobDesc::secCmdDefaultReplyType, ReplyType::Id);
    ASSERT_TRUE(restart({"--replyorigin"}));
    EXPECT_EQ(TranscoderJobDesc::secCmdDefaultReplyType, ReplyType::Origin);
}

TEST_F(TranscoderInitTest, OneCertificateServesBothServers) {
    auto& host = HostOptions::host();
    host.sslCert = host.sslKey = "";
    const Words own{"--delivery-cert", "dc", "--delivery-key", "dk"};
    host.ssl = false;
    ASSERT_TRUE(init(own));
    EXPECT_EQ(host.sslCert + "," + host.sslKey, ",");
    host.ssl = true;
    host.sslCert = "hc";
    ASSERT_TRUE(restart(own));
    EXPECT_EQ(host.sslCert + "," + host.sslKey, "hc,");
    host.sslCert = "";
    host.sslKey = "hk";
    ASSERT_TRUE(restart(own));
    EXPECT_EQ(host.sslCert + "," + host.sslKey, "dc,dk");
}

class TranscoderConfigPageTest : public TranscoderServiceProviderTest {
protected:
    Reply configure(const std::string& body, const std::string& method = "POST") {
        auto request = makeRequest(method, "/config", body);
        request.header().setParam("Origin", "http://me");
        Support::OutputCapture capture;
        Reply reply;
        EXPECT_TRUE(provider->handleConfig(request, reply));
        errors = capture.errors();
        EXPECT_TRUE(hasCors(reply, "http://me")) << body;
        EXPECT_EQ(reply.header().entries().size(), 2u) << body;
        return reply;
    }

    /// The delivery address that a document leads to.
    std::string urlAfter(const std::string& body) {
        const Reply reply = configure(body);
        EXPECT_EQ(reply.code, 200u) << body;
        EXPECT_EQ(reply.body(), refresh) << body;
        return deliveryUrl();
    }

    const std::string refresh =
        "<HEAD>\n<meta http-equiv=\"refresh\" content=\"0; url=/index.html\"/>\n</HEAD>\n";
    const std::string own = Kestrel::SysInfo::the().hostName();
};

TEST_F(TranscoderConfigPageTest, RefusesWhatIsNoPostOfAnObject) {
    ASSERT_TRUE(init());
    for (const char* method : {"GET", "PUT", "HEAD", "post", ""}) {
        EXPECT_EQ(configure("{\"deliveryPort\":1}", method).code, 400u) << method;
        EXPECT_EQ(errors, "");
    }
    for (const char* body : {"[]", "1", "null", "\"text\""}) {
        const Reply reply = configure(body);
        EXPECT_EQ(reply.code, 400u) << body;
        EXPECT_EQ(reply.body(), "") << body;
        EXPECT_EQ(errors, "") << body;
    }
    EXPECT_EQ(deliveryUrl(), "http://name:4712");
}

TEST_F(TranscoderConfigPageTest, TellsOfABodyThatIsNoJson) {
    ASSERT_TRUE(init());
    const std::string prefix = "JSON POST parsing error: syntax error at line ";
    for (const char* body : {"", "x", "{\"deliveryPort\":1", "{\n\"deliveryPort\" 1}"}) {
        EXPECT_EQ(configure(body).code, 400u) << body;
        EXPECT_EQ(errors.substr(0, prefix.size()), prefix) << body;
        EXPECT_EQ(errors.back(), '\n') << body;
    }
    EXPECT_NE(errors.find("line 2 near: "), std::string::npos) << errors;
    EXPECT_EQ(deliveryUrl(), "http://name:4712");
}

// The parser throws for such a number, and what stood before it must not count.
TEST_F(TranscoderConfigPageTest, RefusesANumberOutOfRangeWhole) {
    folder.write("cache/P/3/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    ASSERT_TRUE(init());
    EXPECT_EQ(configure("{\"clearCache\":true,\"deliveryPort\":1,\"x\":1e999}").code, 400u);
    EXPECT_EQ(errors.substr(0, 26), "JSON POST parsing error: s") << errors;
    EXPECT_EQ(deliveryUrl(), "http://name:4712");
    EXPECT_TRUE(folder.has("cache/P/3"));
}

TEST_F(TranscoderConfigPageTest, TakesTextBehindTheValueAndStopsAtAZeroByte) {
    ASSERT_TRUE(init());
    EXPECT_EQ(urlAfter("{\"deliveryPort\":1} and more"), "http://" + own + ":1");
    EXPECT_EQ(urlAfter(std::string("{\"deliveryPort\":2}\0{", 20)), "http://" + own + ":2");
    EXPECT_EQ(configure(std::string("{\"deliveryPort\":3\0}", 19)).code, 400u);
}

TEST_F(TranscoderConfigPageTest, ServesItsOwnNameOnly) {
    ASSERT_TRUE(init());
    const Reply reply = configure("{\"service\":\"Other%sService\",\"deliveryPort\":1}");
    EXPECT_EQ(reply.code, 400u);
    EXPECT_EQ(reply.body(), "");
    EXPECT_EQ(errors, "looking for wrong service : Other%sService\n");
    EXPECT_EQ(deliveryUrl(), "http://name:4712");
    EXPECT_EQ(configure("{\"service\":\"\"}").code, 400u);
    EXPECT_EQ(urlAfter("{\"service\":\"TranscoderService\",\"deliveryPort\":2}"),
              "http://" + own + ":2");
    EXPECT_EQ(urlAfter("{\"service\":7,\"deliveryPort\":3}"), "http://" + own + ":3");
}

TEST_F(TranscoderConfigPageTest, ChangesNothingForOtherKeys) {
    ASSERT_TRUE(init());
    for (const char* body : {"{}", "{\"threads\":8}", "{\"deliveryHost\":\"h\"}",
                             "{\"clearCache\":false}", "{\"unknown\":[]}"})
        EXPECT_EQ(urlAfter(body), "http://name:4712") << body;
    EXPECT_EQ(workerCount(), 3u);
}

TEST_F(TranscoderConfigPageTest, BuildsTheDeliveryAddressAnew) {
    ASSERT_TRUE(init());
    EXPECT_EQ(urlAfter("{\"deliveryPort\":8181}"), "http://" + own + ":8181");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":\"8181\"}"), "http://" + own + ":");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":null}"), "http://" + own + ":");
    EXPECT_EQ(urlAfter("{\"deliveryProto\":\"https\"}"), "https://" + own + ":4712");
    EXPECT_EQ(urlAfter("{\"deliveryProto\":\"\"}"), "://" + own + ":4712");
    EXPECT_EQ(urlAfter("{\"deliveryProto\":5}"), "http://" + own + ":4712");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":1,\"deliveryHost\":\"h\",\"deliveryProto\":\"ftp\"}"),
              "ftp://h:1");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":1,\"deliveryHost\":\"\"}"), "http://:1");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":1,\"deliveryHost\":5}"), "http://" + own + ":1");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":1,\"deliveryHost\":\"localip\"}"),
              "http://" + own + ":1");
    EXPECT_EQ(urlAfter("{\"deliveryPort\":1,\"deliveryHost\":\"LocalIp\"}"), "http://LocalIp:1");
}

TEST_F(TranscoderConfigPageTest, WritesTheIntegerPartOfThePortHoweverLarge) {
    ASSERT_TRUE(init());
    const std::pair<const char*, const char*> ports[] = {{"8181.9", "8181"},
                                                         {"-1", "-1"},
                                                         {"-0.5", "0"},
                                                         {"0", "0"},
                                                         {"1e3", "1000"},
                                                         {"123456789", "123456789"},
                                                         {"1e20", "100000000000000000000"},
                                                         {"4294967296", "4294967296"}};
    for (const auto& [given, written] : ports)
        EXPECT_EQ(urlAfter(std::string("{\"deliveryPort\":") + given + "}"),
                  "http://" + own + ":" + written);
}

TEST_F(TranscoderConfigPageTest, StandsInWithItsOptions) {
    ASSERT_TRUE(init({"--external_ip", "10.0.0.1", "--delivery_port", "9000"}));
    EXPECT_EQ(urlAfter("{\"deliveryProto\":\"https\",\"deliveryHost\":\"localip\"}"),
              "https://10.0.0.1:9000");
    EXPECT_EQ(post("{\"uid\":\"u\",\"commands\":[],\"reply\":\"uri\"}").body(),
              "https://10.0.0.1:9000/P/1");
    EXPECT_EQ(deliveryPort(), 9000u);
}

} // namespace
} // namespace OstrandService

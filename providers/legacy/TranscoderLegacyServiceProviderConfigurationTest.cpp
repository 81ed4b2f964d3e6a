#include "providers/legacy/TranscoderLegacyServiceProviderTest.h"

#include "platform/hub/Icon.h"
#include "platform/kestrel/SysInfo.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>

namespace OstrandService {
namespace {

using Support::headerOf;
using Support::makeRequest;
using Support::ServerPages;

class LegacyConfigurationTest : public TranscoderLegacyServiceProviderTest {
protected:
    static std::string machine() { return Kestrel::SysInfo::the().hostName(); }
};

TEST_F(LegacyConfigurationTest, BeginsWithItsDefaults) {
    EXPECT_EQ(provider->logPath, "./transcoder/log");
    EXPECT_EQ(provider->cachePath, "./transcoder/cache");
    EXPECT_EQ(provider->baseCachePath, "./transcoder/cache");
    EXPECT_EQ(deliveryPort(), 0);
    EXPECT_EQ(state().workerCount, 3);
    EXPECT_TRUE(state().urlDecode);
    EXPECT_EQ(state().cachePath, "");
    EXPECT_EQ(state().fettlePath, "");
    EXPECT_EQ(state().getDeliveryService(), "");
    EXPECT_EQ(state().serviceId(), "");
    EXPECT_EQ(state().toolNames, (Words{"fettle", "glimt"}));
    EXPECT_EQ(deliveryServer().bodyLimit, 2ull * 1024 * 1024 * 1024);
    Reply reply;
    EXPECT_FALSE(provider->addJob(Request(), picojson::value(picojson::object()), reply));
}

TEST_F(LegacyConfigurationTest, SetupOfTheLogGivesPathsAndScene) {
    provider->logPath = folder.path("log");
    provider->setupLogging();
    EXPECT_EQ(LegacyState::current, &state());
    EXPECT_EQ(state().cachePath, "./transcoder/cache");
    EXPECT_EQ(state().fettlePath, "fettle.exe");
    EXPECT_EQ(state().screenshotTemplate.substr(0, 39),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    destroy();
    EXPECT_EQ(LegacyState::current, nullptr);
}

TEST_F(LegacyConfigurationTest, ListsTheBasesOptionsAndItsOwn) {
    std::vector<std::string> names;
    const auto desc = options();
    for (const auto& option : desc.options())
        names.push_back(option->format_name());
    EXPECT_EQ(names,
              (Words{"-l [ --log_path ]", "-m [ --mcastreg ]", "-i [ --ipreg ]", "--providerid",
                     "--shortuuid", "--fettle_path", "-c [ --cache_path ]", "--delivery_service",
                     "--delivery_port", "-t [ --worker_threads ]", "--disable_url_decode"}));
    std::ostringstream help;
    help << desc;
    EXPECT_NE(help.str().find("Disables URL decoding of job URIs."), std::string::npos);
}

TEST_F(LegacyConfigurationTest, TakesTheCachePathUnderEveryName) {
    for (const char* name : {"--cache_path", "-c", "--cache", "--c"}) {
        provider->setupLogging();
        const auto desc = options();
        boost::program_options::variables_map vm;
        boost::program_options::store(
            boost::program_options::command_line_parser(Words{name, "/x/y"}).options(desc).run(),
            vm);
        boost::program_options::notify(vm);
        EXPECT_EQ(provider->cachePath, "/x/y") << name;
        EXPECT_EQ(state().cachePath, "/x/y") << name;
        provider->cachePath = "";
    }
}

TEST_F(LegacyConfigurationTest, RefusesValuesThatDoNotFit) {
    const Words wrong[] = {{"-t", "-1"},
                           {"-t", "4097"},
                           {"-t", "x"},
                           {"--delivery_port", "-1"},
                           {"--delivery_port", "65536"},
                           {"--disable_url_decode=1"},
                           {"-c", "a", "--cache_path", "b"}};
    for (const Words& words : wrong)
        EXPECT_THROW(init(words), boost::program_options::error) << words[0] << words.size();
}

TEST_F(LegacyConfigurationTest, MakesTheFoldersBesideEachOther) {
    ASSERT_TRUE(init({"-t", "0", "--providerid", "P"}));
    EXPECT_EQ(state().cachePath, folder.path("cache"));
    EXPECT_EQ(baseCachePath(), folder.path("cache/P"));
    EXPECT_TRUE(folder.has("cache/P"));
    EXPECT_TRUE(folder.has("cache/in"));
    EXPECT_EQ(state().uploadPath, folder.path("cache/in"));
    EXPECT_EQ(output, "Loading old jobs: 0\nNumber of worker threads: 0\n");
    EXPECT_EQ(errors, "mcast reg : 0\nip reg : localhost:8080\n");
    EXPECT_TRUE(logged("Params: number of worker threads: 0"));
}

TEST_F(LegacyConfigurationTest, KeepsTheCachePathAsGivenAndMakesTheUploadFolderAbsolute) {
    const auto here = boost::filesystem::current_path();
    boost::filesystem::current_path(folder.path());
    const bool done = initWith({"-t", "0", "-l", "log", "-c", "./a/../b"});
    boost::filesystem::current_path(here);
    ASSERT_TRUE(done);
    EXPECT_EQ(state().cachePath, "./a/../b");
    EXPECT_TRUE(state().uploadPath.is_absolute());
    EXPECT_EQ(boost::filesystem::canonical(state().uploadPath),
              boost::filesystem::canonical(folder.path("b/in")));
}

TEST_F(LegacyConfigurationTest, FoldersThatCanNotBeMadeEndTheStart) {
    const std::string message = "Error: cannot create cache and log folders in this directory. "
                                "Please use the command line to specify existing folders for "
                                "both.\n";
    folder.makeFolder("cache");
    ASSERT_EQ(::symlink("nowhere/at/all", folder.path("cache/in").c_str()), 0);
    EXPECT_FALSE(init());
    EXPECT_EQ(output, message);
    EXPECT_EQ(workers(), 0u);
}

TEST_F(LegacyConfigurationTest, StartsThreeWorkersUnlessToldOtherwise) {
    ASSERT_TRUE(init({}));
    EXPECT_EQ(workers(), 3u);
    EXPECT_EQ(state().workerCount, 3);
    EXPECT_EQ(output, "Loading old jobs: 0\nNumber of worker threads: 3\n");
    EXPECT_EQ(provider->workerThreads.size(), 0u) << "the framework's workers are not used";
}

TEST_F(LegacyConfigurationTest, StartsAsManyWorkersAsToldAndEndsThem) {
    ASSERT_TRUE(init({"--worker_threads", "5"}));
    EXPECT_EQ(workers(), 5u);
    EXPECT_EQ(state().workerCount, 5);
}

TEST_F(LegacyConfigurationTest, TellsTheNextPortAsItsDeliveryAddress) {
    ASSERT_TRUE(init());
    EXPECT_EQ(state().getDeliveryService(), "http://" + machine() + ":4712");
}

TEST_F(LegacyConfigurationTest, TellsAnotherDeliveryPortWhereOneIsGiven) {
    HostOptions::host().host = "other";
    ASSERT_TRUE(init({"-t", "0", "--delivery_port", "8080"}));
    EXPECT_EQ(state().getDeliveryService(), "http://" + machine() + ":8080");
}

TEST_F(LegacyConfigurationTest, TellsTheDeliveryServiceAsGiven) {
    ASSERT_TRUE(
        init({"-t", "0", "--delivery_service", "https://front/x", "--delivery_port", "8080"}));
    EXPECT_EQ(state().getDeliveryService(), "https://front/x");
}

TEST_F(LegacyConfigurationTest, DecodesUnlessToldNotTo) {
    ASSERT_TRUE(init({"-t", "0", "--disable_url_decode", "--fettle_path", "/a/b"}));
    EXPECT_FALSE(state().urlDecode);
    EXPECT_EQ(state().fettlePath, "/a/b");
}

TEST_F(LegacyConfigurationTest, HasItsOwnPagesAndNoSecureOnes) {
    ASSERT_TRUE(init());
    for (const char* path :
         {"/", "/job/add", "/job/delete", "/job", "/job/list", "/job/list/cached", "/job/list/json",
          "/job/list/open", "/job/1", "/job/updateState", "/settings", "/changelog", "/statistics",
          "/chart.js", "/version", "/favicon.ico", "/reconfig"}) {
        EXPECT_NE(ServerPages::find(HostOptions::host().webServer, path), nullptr) << path;
        EXPECT_EQ(ServerPages::find(HostOptions::host().sslWebServer, path), nullptr) << path;
    }
    for (const char* path : {"/config", "/joblist", "/list", "/Version", "/version/"})
        EXPECT_EQ(ServerPages::find(HostOptions::host().webServer, path), nullptr) << path;
    EXPECT_EQ(state().webServer, &HostOptions::host().webServer);
}

TEST_F(LegacyConfigurationTest, HasNoPageForReconfigurationUnlessAllowed) {
    HostOptions::host().allowReconfig = false;
    ASSERT_TRUE(init());
    EXPECT_EQ(ServerPages::find(HostOptions::host().webServer, "/reconfig"), nullptr);
}

TEST_F(LegacyConfigurationTest, ShowsTheIconOnBothServersWhateverTheMethod) {
    ASSERT_TRUE(init());
    folder.write("cache/.partial", "");
    folder.write("cache/favicon.ico", "another");
    for (const char* method : {"GET", "POST"}) {
        for (const Reply& reply : {ask(makeRequest(method, "/favicon.ico")),
                                   fetch(makeRequest(method, "/favicon.ico"))}) {
            EXPECT_EQ(reply.code, 200u);
            EXPECT_EQ(headerOf(reply, "Content-Type"), "image/x-icon");
            EXPECT_EQ(reply.body(), std::string(OstrandHub::ostrandHub_icon_col_sans_ico, 13752));
        }
    }
}

TEST_F(LegacyConfigurationTest, TheResultServerListensBesideTheHost) {
    // The next port is 0, which stands for a free one.
    HostOptions::host().port = 65535;
    HostOptions::host().listenThreads = 2;
    HostOptions::host().webServer.threadParams = {2, 30, 2, 15};
    ASSERT_TRUE(init({"-t", "0", "--delivery_port", "8080"}));
    Support::OutputCapture capture;
    provider->start();
    const unsigned short port = deliveryServer().socketAddress.getServicePort();
    EXPECT_EQ(capture.output(), "OstrandServiceDelivery listening on port: " +
                                    std::to_string(port) + " with : 2 threads\n\n");
    EXPECT_NE(port, 0);
    EXPECT_NE(port, 8080);
    EXPECT_EQ(deliveryServer().startFlags, 0u);
    EXPECT_EQ(deliveryServer().threadParams.numThreads, 2u);
    EXPECT_EQ(deliveryServer().threadParams.idleSeconds, 30u);
    EXPECT_EQ(deliveryServer().threadParams.stallMillis, 2u);
    EXPECT_EQ(deliveryServer().threadParams.clientSeconds, 15u);
    EXPECT_FALSE(provider->running) << "the framework's own start is not used";
    EXPECT_EQ(state().serviceId().size(), 36u);
}

} // namespace
} // namespace OstrandService

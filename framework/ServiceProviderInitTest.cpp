#include "framework/ServiceProvider.h"

#include "platform/hub/MessageLog.h"
#include "platform/hub/OstrandHubServiceProvider.h"
#include "platform/hub/Uuid.h"
#include "tests/support/HostOptions.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestProvider.h"

#include <boost/program_options.hpp>
#include <gtest/gtest.h>

namespace OstrandService {
namespace {

namespace po = boost::program_options;
using Support::OutputCapture;
using Support::TestProvider;

constexpr const char* baseMessage =
    "Error: cannot create base cache folders in this directory. Please use the command line to "
    "specify existing folders for both.\n";
constexpr const char* logMessage =
    "Error: cannot create log folders in this directory. Please use the command line to specify "
    "existing folders for both.\n";

class ServiceProviderInitTest : public ::testing::Test {
protected:
    ServiceProviderInitTest() : provider(folder.path("log"), folder.path("cache")) {}

    /// Parses these words with the provider's own options and initialises it.
    bool init(const std::vector<std::string>& words = {}) {
        po::options_description desc;
        provider.addOptions(desc);
        po::variables_map vm;
        po::store(po::command_line_parser(words).options(desc).run(), vm);
        po::notify(vm);
        OutputCapture capture;
        const bool done = provider.init(vm);
        output = capture.output();
        errors = capture.errors();
        return done;
    }

    Support::TemporaryFolder folder;
    TestProvider provider;
    std::string output;
    std::string errors;
};

TEST_F(ServiceProviderInitTest, ConstructorTakesBothPaths) {
    EXPECT_EQ(provider.logPath, folder.path("log"));
    EXPECT_EQ(provider.baseCachePath, folder.path("cache"));
    EXPECT_EQ(provider.cachePath, folder.path("cache"));
    EXPECT_EQ(provider.regAddress, "localhost:8080");
    EXPECT_FALSE(provider.regByMulticast);
    EXPECT_FALSE(provider.shortUuid);
    EXPECT_FALSE(provider.running);
    EXPECT_FALSE(provider.hubProvider);
    EXPECT_TRUE(provider.workerThreads.empty());
    EXPECT_FALSE(folder.has("log"));
    EXPECT_FALSE(folder.has("cache"));
}

TEST_F(ServiceProviderInitTest, MakesTheFoldersAndTakesTheClientsIdentifier) {
    ASSERT_TRUE(init());
    EXPECT_TRUE(OstrandHub::isUuid(provider.providerId));
    EXPECT_EQ(provider.providerId, provider.hubProvider->getUUID());
    EXPECT_EQ(provider.baseCachePath, folder.path("cache"));
    EXPECT_EQ(provider.cachePath, folder.path("cache") + "/" + provider.providerId);
    EXPECT_TRUE(boost::filesystem::is_directory(provider.cachePath));
    EXPECT_TRUE(boost::filesystem::is_directory(folder.path("log")));
    EXPECT_EQ(output, "");
    EXPECT_EQ(errors, "mcast reg : 0\nip reg : localhost:8080\n");
    EXPECT_EQ(MessageLog::getLogPath(), folder.path("log"));
}

TEST_F(ServiceProviderInitTest, TakesTheOptions) {
    ASSERT_TRUE(init({"-l", folder.path("a/l"), "-c", folder.path("b/c"), "-m", "-i", "hub:1",
                      "--providerid", "P"}));
    EXPECT_EQ(provider.baseCachePath, folder.path("b/c"));
    EXPECT_EQ(provider.cachePath, folder.path("b/c/P"));
    EXPECT_EQ(provider.providerId, "P");
    EXPECT_TRUE(folder.has("a/l"));
    EXPECT_TRUE(folder.has("b/c/P"));
    EXPECT_TRUE(folder.has("b/c/.serviceid"));
    EXPECT_FALSE(folder.has("cache"));
    EXPECT_TRUE(provider.regByMulticast);
    EXPECT_EQ(errors, "mcast reg : 1\nip reg : hub:1\n");
}

TEST_F(ServiceProviderInitTest, ShortensTheIdentifierWhenAsked) {
    ASSERT_TRUE(init({"--shortuuid"}));
    EXPECT_EQ(provider.providerId.size(), 8u);
    EXPECT_EQ(provider.cachePath, folder.path("cache") + "/" + provider.providerId);
    EXPECT_EQ(folder.read("cache/.serviceid").substr(0, 8), provider.providerId);
    EXPECT_TRUE(OstrandHub::isUuid(folder.read("cache/.serviceid").substr(0, 36)));
}

TEST_F(ServiceProviderInitTest, KeepsTheIdentifierOverARestart) {
    ASSERT_TRUE(init());
    TestProvider restarted(folder.path("log"), folder.path("cache"));
    po::variables_map vm;
    po::options_description desc;
    restarted.addOptions(desc);
    po::store(po::command_line_parser(std::vector<std::string>()).options(desc).run(), vm);
    OutputCapture capture;
    ASSERT_TRUE(restarted.init(vm));
    EXPECT_EQ(restarted.providerId, provider.providerId);
    // The first one is still there.
    EXPECT_EQ(capture.errors().find(
                  "cache folder in use by another service: " + provider.cachePath + "\n"),
              0U);
}

TEST_F(ServiceProviderInitTest, FoldersThatAreThereAreNoFailure) {
    folder.makeFolder("log");
    folder.write("cache/P/7/.meta", "{}");
    EXPECT_TRUE(init({"--providerid", "P"}));
    EXPECT_EQ(folder.read("cache/P/7/.meta"), "{}");
}

TEST_F(ServiceProviderInitTest, RefusesACacheRootThatCannotBeMade) {
    folder.write("file", "");
    EXPECT_FALSE(init({"--cache_path", folder.path("file/below")}));
    EXPECT_EQ(output, baseMessage);
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(folder.has("log"));
}

TEST_F(ServiceProviderInitTest, RefusesAnEmptyCachePath) {
    EXPECT_FALSE(init({"--cache_path", ""}));
    EXPECT_EQ(output, baseMessage);
}

// Something of that name is there, so it is the folder below it that fails.
TEST_F(ServiceProviderInitTest, RefusesACacheRootThatIsAFileWithTheOtherMessage) {
    folder.write("file", "text");
    EXPECT_FALSE(init({"--cache_path", folder.path("file")}));
    EXPECT_EQ(output, logMessage);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(folder.read("file"), "text");
}

TEST_F(ServiceProviderInitTest, RefusesALogFolderThatCannotBeMade) {
    folder.write("file", "");
    EXPECT_FALSE(init({"--log_path", folder.path("file/below"), "--providerid", "P"}));
    EXPECT_EQ(output, logMessage);
    // The log comes first, and nothing is made behind the failure.
    EXPECT_FALSE(folder.has("cache/P"));
}

// What the file is, is found out by whoever writes to it: the log is silent then.
TEST_F(ServiceProviderInitTest, TakesALogPathThatIsAFile) {
    folder.write("file", "text");
    EXPECT_TRUE(init({"--log_path", folder.path("file")}));
    EXPECT_EQ(folder.read("file"), "text");
}

TEST_F(ServiceProviderInitTest, UsesAClientThatIsThere) {
    const auto* client = new OstrandHubServiceProvider(folder.makeFolder("other"), "G", false);
    provider.hubProvider.reset(const_cast<OstrandHubServiceProvider*>(client));
    ASSERT_TRUE(init());
    EXPECT_EQ(provider.hubProvider.get(), client);
    EXPECT_EQ(provider.providerId, client->getUUID());
}

TEST_F(ServiceProviderInitTest, ShowsItsOptions) {
    po::options_description desc;
    provider.addOptions(desc);
    std::vector<std::string> names;
    for (const auto& option : desc.options())
        names.push_back(option->format_name() + " " + option->format_parameter());
    EXPECT_EQ(names, (std::vector<std::string>{"-l [ --log_path ] arg", "-c [ --cache_path ] arg",
                                               "-m [ --mcastreg ] ",
                                               "-i [ --ipreg ] arg (=localhost:8080)",
                                               "--providerid arg", "--shortuuid "}));
}

TEST_F(ServiceProviderInitTest, DefaultOfTheHubsAddressIsTheFieldsContent) {
    provider.regAddress = "hub:2";
    EXPECT_TRUE(init());
    EXPECT_EQ(errors, "mcast reg : 0\nip reg : hub:2\n");
}

} // namespace
} // namespace OstrandService

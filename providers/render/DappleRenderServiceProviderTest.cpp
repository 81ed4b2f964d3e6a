#include "providers/render/DappleRenderServiceProviderTest.h"

#include "platform/hub/FakeHub.h"
#include "platform/hub/HubClock.h"

#include <boost/filesystem.hpp>
#include <boost/lexical_cast.hpp>
#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using DappleRenderStartTest = DappleRenderServiceProviderTest;

const std::string oneSlot = "{\"displays\":[\":0\"],\"exe\":\"true\"}";

TEST_F(DappleRenderStartTest, HasItsOwnFolders) {
    EXPECT_EQ(provider->logPath, "./dapple/log");
    EXPECT_EQ(provider->cachePath, "./dapple/cache");
    EXPECT_EQ(provider->baseCachePath, "./dapple/cache");
}

TEST_F(DappleRenderStartTest, ReadsTheSlots) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\",\":1\"],\"port\":7},{\"displays\":[\":2\"]}"));
    ASSERT_EQ(slots().size(), 3u);
    EXPECT_EQ(slots()[1].port, 8);
    EXPECT_EQ(slots()[2].port, 42000);
    EXPECT_EQ(tableSize(), 3u);
    EXPECT_FALSE(job(0));
    EXPECT_EQ(errors, "mcast reg : 0\nip reg : localhost:8080\ninit with config file : " +
                          folder.path(configFile) + "\n");
    EXPECT_EQ(output, "");
}

TEST_F(DappleRenderStartTest, NeedsAFile) {
    EXPECT_FALSE(init());
    EXPECT_EQ(errors, "mcast reg : 0\nip reg : localhost:8080\ninit with config file : " +
                          folder.path(configFile) + "\ndapple config file not found\n");
}

// A link to nothing or to itself, and a file where a folder should be on the way, are no file
// either.
TEST_F(DappleRenderStartTest, NeedsAFileThatIsThere) {
    folder.makeFolder("hub/config");
    for (const char* target : {"nowhere", "dappleconfig.json"}) {
        boost::filesystem::create_symlink(target, folder.path(configFile));
        EXPECT_FALSE(restart()) << target;
        EXPECT_NE(errors.find("\ndapple config file not found\n"), std::string::npos) << target;
        boost::filesystem::remove(folder.path(configFile));
    }
    boost::filesystem::remove_all(folder.path("hub"));
    folder.write("hub/config", "in the way");
    EXPECT_FALSE(restart());
    EXPECT_NE(errors.find("\ndapple config file not found\n"), std::string::npos);
}

TEST_F(DappleRenderStartTest, FailsSilentlyOnWhatIsNoJson) {
    const std::string quiet = "mcast reg : 0\nip reg : localhost:8080\ninit with config file : " +
                              folder.path(configFile) + "\n";
    for (const std::string& text :
         {std::string(), std::string("{"), std::string("{\"renderer\":[}"), std::string("nonsense"),
          std::string("{} x"), std::string("{\"a\":1e999}"),
          std::string(200, '[') + std::string(200, ']'), std::string("\0{}", 3)}) {
        folder.write(configFile, text);
        EXPECT_FALSE(restart()) << text;
        EXPECT_EQ(errors, quiet) << text;
    }
    boost::filesystem::remove(folder.path(configFile));
    folder.makeFolder(configFile);
    EXPECT_FALSE(restart());
    EXPECT_EQ(errors, quiet);
}

TEST_F(DappleRenderStartTest, RunsWithoutSlotsOnJsonThatTellsOfNone) {
    for (const char* text : {"{}", "[]", "5", "null", "\"x\"", "{\"renderer\":{}}",
                             "{\"renderer\":[]}", "{\"renderer\":[{}]}", " {\"renderer\":[5]}\n"}) {
        folder.write(configFile, text);
        ASSERT_TRUE(restart()) << text;
        EXPECT_TRUE(slots().empty()) << text;
        EXPECT_EQ(start(), "num renderer slots : 0\n");
        EXPECT_TRUE(provider->workerThreads.empty());
        EXPECT_EQ(submit("{}").code, 503u);
        EXPECT_EQ(get("/job/0").code, 400u);
    }
}

// What the file says is looked at all the same: both troubles are told of at once.
TEST_F(DappleRenderStartTest, GoesOnAfterTheBaseHasFailed) {
    boost::filesystem::create_symlink("nowhere", folder.path("cache"));
    ASSERT_FALSE(init());
    EXPECT_EQ(output, "Error: cannot create base cache folders in this directory. Please use the "
                      "command line to specify existing folders for both.\n");
    EXPECT_EQ(errors, "init with config file : " + folder.path(configFile) +
                          "\ndapple config file not found\n");
    EXPECT_FALSE(provider->hubProvider);
    folder.write(configFile, "{\"renderer\":[" + oneSlot + "]}");
    ASSERT_FALSE(restart());
    EXPECT_EQ(errors, "init with config file : " + folder.path(configFile) + "\n");
    EXPECT_EQ(slots().size(), 1u);
    EXPECT_EQ(provider->cachePath, folder.path("cache"));
}

TEST_F(DappleRenderStartTest, GoesOnWithoutAFolderForTheLogs) {
    boost::filesystem::create_symlink("nowhere", folder.path("log"));
    EXPECT_FALSE(initWith(oneSlot));
    EXPECT_EQ(output, "Error: cannot create log folders in this directory. Please use the command "
                      "line to specify existing folders for both.\n");
    EXPECT_EQ(errors, "init with config file : " + folder.path(configFile) + "\n");
    EXPECT_EQ(slots().size(), 1u);
    EXPECT_EQ(tableSize(), 1u);
}

TEST_F(DappleRenderStartTest, StartsAWorkerForEachSlotAndListsThem) {
    ASSERT_TRUE(initWith(oneSlot + ",{\"displays\":[\":1\"],\"class\":\"ray\",\"port\":1}"));
    const std::string table = start();
    EXPECT_EQ(table, "num renderer slots : 2\n"
                     "Renderer : 0\n  class   : opengl\n  gpus    : 1\n  cpus    : 1\n"
                     "  port     : 42000\n  outputs :  [0] framebuffer, \n  display  : :0\n"
                     "  app      : true\n  portOpt  : --port\n  classOpt : --class\n"
                     "  gpuOpt   : --gpus\n  cpuOpt   : --cpus\n  outOpt   : --output\n"
                     "  addOpt   : --foobar\n"
                     "Renderer : 1\n  class   : ray\n  gpus    : 1\n  cpus    : 1\n"
                     "  port     : 1\n  outputs :  [0] framebuffer, \n  display  : :1\n"
                     "  app      : appDapple\n  portOpt  : --port\n  classOpt : --class\n"
                     "  gpuOpt   : --gpus\n  cpuOpt   : --cpus\n  outOpt   : --output\n"
                     "  addOpt   : --foobar\n");
    ASSERT_EQ(provider->workerThreads.size(), 2u);
    EXPECT_NE(provider->workerThreads[0], nullptr);
    EXPECT_NE(provider->workerThreads[1], nullptr);
}

TEST_F(DappleRenderStartTest, AddsOptionsOfTheBaseOnly) {
    boost::program_options::options_description desc;
    provider->addOptions(desc);
    EXPECT_EQ(desc.options().size(), 6u);
    EXPECT_EQ(desc.find_nothrow("worker_threads", false), nullptr);
}

TEST_F(DappleRenderStartTest, TellsTheHubNothing) {
    const auto hub = std::make_shared<FakeHub>();
    provider->hubProvider.reset(new OstrandHubServiceProvider(
        folder.makeFolder("cache"), "G", false, hub, OstrandHub::makeSteadyClock()));
    ASSERT_TRUE(initWith(oneSlot));
    start();
    destroy();
    EXPECT_TRUE(hub->deliveries().empty());
}

TEST_F(DappleRenderStartTest, HasTheRoutesOfTheBaseOnly) {
    ASSERT_TRUE(initWith(oneSlot));
    provider->addPages();
    const Portico::WebServer& server = HostOptions::host().webServer;
    for (const char* path : {"/", "/job", "/job/add", "/job/0", "/favicon.ico"})
        EXPECT_NE(Support::ServerPages::find(server, path), nullptr) << path;
    for (const char* path : {"/statistics", "/changelog", "/config", "/jobs", "//job/0"})
        EXPECT_EQ(Support::ServerPages::find(server, path), nullptr) << path;
}

TEST_F(DappleRenderStartTest, ShutdownWithoutStartIsHarmless) {
    ASSERT_TRUE(initWith(oneSlot));
    EXPECT_EQ(submit("{}").code, 200u);
    EXPECT_EQ(queued(), 1u);
    destroy();
    EXPECT_FALSE(folder.has("cache/P/0/console.txt"));
}

// Half the counting and the freeing of the slot in one place: nothing else ever frees one.
TEST_F(DappleRenderStartTest, RemovedJobIsCountedOnceMoreAndFreesItsSlot) {
    ASSERT_TRUE(initWith(oneSlot));
    ASSERT_EQ(submit("{}").code, 200u);
    Job kept = job(0);
    kept->state = JobState::MARKED_FOR_DELETION;
    Support::OutputCapture capture;
    provider->jobFinished(kept);
    EXPECT_EQ(counters(), "0 1 0");
    EXPECT_TRUE(job(0));
    provider->jobRemoved(kept);
    EXPECT_EQ(capture.errors(), "clear job 0\n");
    EXPECT_EQ(counters(), "4294967295 2 0");
    EXPECT_FALSE(job(0));
    EXPECT_NE(boost::static_pointer_cast<ServiceDappleRenderJob>(kept)->slot, nullptr);
}

TEST_F(DappleRenderStartTest, NoJobIsNeitherFinishedNorRemoved) {
    ASSERT_TRUE(initWith(oneSlot));
    Job none;
    Support::OutputCapture capture;
    provider->jobFinished(none);
    provider->jobRemoved(none);
    EXPECT_EQ(capture.errors(), "");
    EXPECT_EQ(counters(), "0 0 0");
}

TEST_F(DappleRenderStartTest, FailedJobCountsAsFailed) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\"],\"exe\":\"false\"}"));
    start();
    submit("{}");
    EXPECT_TRUE(Support::waitUntil([this] { return counters() == "0 0 1"; }));
    EXPECT_EQ(job(0)->state, JobState::ERROR);
}

// A worker that finds a stopped job in the queue takes the road by which a slot becomes free; the
// slot's next job has the same id and folder.
TEST_F(DappleRenderStartTest, WorkerFreesTheSlotOfAJobMarkedForDeletion) {
    ASSERT_TRUE(initWith(oneSlot));
    ASSERT_EQ(submit("{\"first\":1}").code, 200u);
    job(0)->state = JobState::MARKED_FOR_DELETION;
    EXPECT_EQ(submit("{}").code, 503u);
    start();
    EXPECT_TRUE(Support::waitUntil([this] { return !job(0); }));
    EXPECT_FALSE(folder.has("cache/P/0/console.txt"));
    EXPECT_EQ(submit("{\"second\":2}").body(), "http://name:4711/job/0\n");
    EXPECT_TRUE(waitForState(0, JobState::CLOSED));
    EXPECT_EQ(folder.read("cache/P/0/.meta"), "{\"second\":2}");
}

} // namespace
} // namespace OstrandService

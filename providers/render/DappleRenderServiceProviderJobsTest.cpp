#include "providers/render/DappleRenderServiceProviderTest.h"

#include <algorithm>
#include <atomic>
#include <boost/lexical_cast.hpp>
#include <boost/thread/lock_types.hpp>
#include <chrono>
#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace OstrandService {
namespace {

using Support::hasNoCors;
using Support::headerOf;

/// Two slots of the class "opengl", of which the second has one more output, and one of "ray".
const std::string threeSlots =
    "{\"displays\":[\":0\"],\"exe\":\"sleep 600\"},"
    "{\"displays\":[\":1\"],\"exe\":\"sleep 600\",\"outputs\":[\"image\"],\"port\":50001},"
    "{\"displays\":[\":2\"],\"exe\":\"sleep 600\",\"class\":\"ray\"}";

std::string slotsOf(int count, const std::string& application) {
    std::string displays;
    for (int i = 0; i < count; ++i)
        displays += (i == 0 ? "\":" : ",\":") + std::to_string(i) + "\"";
    return "{\"displays\":[" + displays + "],\"exe\":\"" + application + "\"}";
}

class DappleRenderJobsTest : public DappleRenderServiceProviderTest {
protected:
    ~DappleRenderJobsTest() override {
        if (provider)
            stopAll();
    }

    /// Stops a job's application; false if it still runs after a while. A stop that comes before
    /// the process is known does nothing, and a second one behind an effective one might free the
    /// slot.
    bool stop(std::size_t slot) {
        const Job held = job(slot);
        return Support::waitUntil([&] {
            const JobState state = held->state;
            if (state == JobState::IN_PROCESS) {
                EXPECT_EQ(remove("/job/" + std::to_string(slot)).code, 200u);
            }
            return state == JobState::CLOSED || state == JobState::ERROR;
        });
    }

    /// Ends what runs, so that the shutdown does not wait for it.
    void stopAll() {
        for (std::size_t slot = 0; slot < tableSize(); ++slot) {
            if (job(slot) && !provider->workerThreads.empty()) {
                EXPECT_TRUE(stop(slot)) << slot;
            }
        }
    }

    static void expectRefusal(const Reply& reply, std::uint32_t code, const std::string& what) {
        EXPECT_EQ(reply.code, code) << what;
        EXPECT_EQ(reply.body(), "") << what;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)") << what;
        EXPECT_TRUE(hasNoCors(reply)) << what;
    }
};

TEST_F(DappleRenderJobsTest, TellsWhereTheJobIs) {
    ASSERT_TRUE(initWith(threeSlots));
    const Reply reply = submit("{}");
    EXPECT_EQ(reply.code, 200u);
    EXPECT_EQ(reply.body(), "http://name:4711/job/0\n");
    EXPECT_EQ(headerOf(reply, "Content-Type"), "text/plain");
    EXPECT_TRUE(hasNoCors(reply));
    EXPECT_EQ(written, "dapple : job add request : \n \nfound slot\n");
    EXPECT_EQ(counters(), "1 0 0");
    EXPECT_EQ(queued(), 1u);
    EXPECT_EQ(job(0)->state, JobState::OPEN);
    EXPECT_STREQ(job(0)->resultText.load(), "Not yet run");
    EXPECT_EQ(job(0)->workDir(), folder.path("cache/P/0"));
    EXPECT_EQ(folder.read("cache/P/0/.meta"), "{}");
}

TEST_F(DappleRenderJobsTest, RefusesABadDescriptionWithoutASlot) {
    ASSERT_TRUE(initWith(threeSlots));
    for (const char* json : {"{\"class\":null}", "{\"class\":[]}", "{\"output\":1}",
                             "{\"environment\":{\"A\":1}}", "{\"environment\":\"A\"}"}) {
        expectRefusal(submit(json), 400, json);
        EXPECT_EQ(written, "dapple : job add request : \n \n") << json;
    }
    EXPECT_FALSE(job(0));
    EXPECT_EQ(counters(), "0 0 0");
}

TEST_F(DappleRenderJobsTest, GivesTheFirstSlotThatFits) {
    ASSERT_TRUE(initWith(threeSlots));
    EXPECT_EQ(submit("{\"output\":\"image\"}").body(), "http://name:4711/job/1\n");
    EXPECT_EQ(written, "dapple : job add request : \n \nfound slot\nfound slot\n");
    EXPECT_EQ(submit("{\"class\":\"ray\"}").body(), "http://name:4711/job/2\n");
    EXPECT_EQ(written, "dapple : job add request : \n \nfound slot\n");
    EXPECT_EQ(submit("{}").body(), "http://name:4711/job/0\n");
    expectRefusal(submit("{}"), 503, "full");
    EXPECT_EQ(written, "dapple : job add request : \n \n");
    EXPECT_EQ(counters(), "3 0 0");
    // They wait in the order in which they came.
    ASSERT_EQ(queued(), 3u);
    for (const std::size_t slot : {1u, 2u, 0u})
        EXPECT_EQ(provider->jobQueue.pop(), job(slot)) << slot;
}

TEST_F(DappleRenderJobsTest, ComparesClassAndOutputExactly) {
    ASSERT_TRUE(initWith(threeSlots));
    for (const char* json :
         {"{\"class\":\"OpenGL\"}", "{\"class\":\"\"}", "{\"class\":\"opengl \"}",
          "{\"class\":\"open\"}", "{\"class\":\"opengl\\u0000\"}"}) {
        expectRefusal(submit(json), 503, json);
        EXPECT_EQ(written, "dapple : job add request : \n \n") << json;
    }
    // Told of each free slot of the class, though none fits.
    expectRefusal(submit("{\"output\":\"Image\"}"), 503, "output");
    EXPECT_EQ(written, "dapple : job add request : \n \nfound slot\nfound slot\n");
    expectRefusal(submit("{\"class\":\"ray\",\"output\":\"image\"}"), 503, "output of a class");
    EXPECT_EQ(written, "dapple : job add request : \n \nfound slot\n");
}

TEST_F(DappleRenderJobsTest, NamesTheJobByThePath) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{}");
    submit("{}");
    for (const char* path : {"/job/0", "/job/00", "/job/+0", "/job/-0", "/job//0", "/job/0/all",
                             "/job//0//all", "/job/0/all/more"}) {
        const Reply reply = get(path);
        expectRefusal(reply, 200, path);
    }
    EXPECT_EQ(get("/job/1").code, 200u);
    EXPECT_EQ(written, "dapple : job details request : \nGET /job/1\n:/\n:job\n:1 | 1\n"
                       "detail : all\n");
    get("/job/+01/all");
    EXPECT_EQ(written, "dapple : job details request : \nGET /job/+01/all\n:/\n:job\n:+01 | 1\n"
                       "detail : all\n");
}

TEST_F(DappleRenderJobsTest, KnowsNoOtherJobs) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{}");
    // Free, out of range, 4294967295, none at all.
    for (const char* path : {"/job/1", "/job/2", "/job/3", "/job/4294967295", "/job/-1", "/job/",
                             "/job//", "/job", "/job/.", "/"}) {
        expectRefusal(get(path), 400, path);
        EXPECT_EQ(written.find("detail :"), std::string::npos) << path;
        expectRefusal(remove(path), 400, path);
        EXPECT_EQ(written.find('|'), std::string::npos) << path;
    }
    get("/job/");
    EXPECT_EQ(written, "dapple : job details request : \nGET /job/\n:/\n:job\n");
    get("/");
    EXPECT_EQ(written, "dapple : job details request : \nGET /\n:/\n");
}

TEST_F(DappleRenderJobsTest, KnowsNoOtherDetails) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{}");
    for (const char* path : {"/job/0/", "/job/0/dappl", "/job/0/Dapple", "/job/0/dapple ",
                             "/job/0/x/dapple", "/job/0//"})
        expectRefusal(get(path), 400, path);
    get("/job/0/");
    EXPECT_EQ(written, "dapple : job details request : \nGET /job/0/\n:/\n:job\n:0 | 0\n"
                       "detail : .\n");
}

TEST_F(DappleRenderJobsTest, ThrowsOnAnIdThatIsNoNumber) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{}");
    for (const char* path :
         {"/job/x", "/job/1x", "/job/ 1", "/job/1 ", "/job/1.5", "/job/0x1", "/job/4294967296",
          "/job/99999999999999999999", "/job/-", "/job/--1", "/job/add", "/job/x/dapple"}) {
        const Support::OutputCapture capture;
        Reply reply;
        EXPECT_THROW(provider->getJob(Support::makeRequest("GET", path), reply), std::bad_cast)
            << path;
        EXPECT_THROW(provider->deleteJob(Support::makeRequest("DELETE", path), reply),
                     boost::bad_lexical_cast)
            << path;
    }
    EXPECT_EQ(get("/job/0").code, 200u);
}

TEST_F(DappleRenderJobsTest, TellsTheAddressOfTheRenderer) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{\"output\":\"image\"}");
    for (const char* path : {"/job/1/dapple", "/job/1/dapple/", "/job/1/dapple/more"}) {
        const Reply reply = get(path);
        EXPECT_EQ(reply.code, 200u) << path;
        EXPECT_EQ(reply.body(), "http://name:50001\n") << path;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)") << path;
    }
    EXPECT_EQ(written, "dapple : job details request : \nGET /job/1/dapple/more\n:/\n:job\n:1 | 1\n"
                       "detail : dapple\n");
}

TEST_F(DappleRenderJobsTest, PortIsToldAsItWasConfigured) {
    ASSERT_TRUE(
        initWith("{\"displays\":[\":0\"],\"port\":-7},{\"displays\":[\":0\"],\"port\":1e9}"));
    submit("{}");
    submit("{}");
    EXPECT_EQ(get("/job/0/dapple").body(), "http://name:-7\n");
    EXPECT_EQ(get("/job/1/dapple").body(), "http://name:1000000000\n");
}

TEST_F(DappleRenderJobsTest, DeletesNothingOfAJobThatWaits) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{}");
    const Reply reply = remove("/job/0");
    expectRefusal(reply, 200, "waiting");
    EXPECT_EQ(written, "dapple : job delete request : \nDELETE /job/0\n:/\n:job\n:0 | 0\n");
    EXPECT_EQ(job(0)->state, JobState::OPEN);
    EXPECT_EQ(queued(), 1u);
}

TEST_F(DappleRenderJobsTest, DeletesAndTellsInEveryStateWhereNothingRuns) {
    ASSERT_TRUE(initWith(threeSlots));
    submit("{}");
    for (std::uint32_t number = 0; number <= 10; ++number) {
        const auto state = static_cast<JobState>(number);
        job(0)->state = state;
        expectRefusal(remove("/job/0"), 200, job(0)->stateName());
        expectRefusal(get("/job/0"), 200, job(0)->stateName());
        EXPECT_EQ(get("/job/0/dapple").body(), "http://name:42000\n") << number;
        EXPECT_EQ(job(0)->state, state) << number;
        EXPECT_EQ(submit("{\"output\":\"ray\"}").code, 503u) << number;
    }
    EXPECT_EQ(queued(), 1u);
    EXPECT_EQ(counters(), "1 0 0");
}

TEST_F(DappleRenderJobsTest, StoppedApplicationLeavesItsSlotTaken) {
    ASSERT_TRUE(initWith(slotsOf(1, "sh -c 'echo up; exec sleep 600'")));
    start();
    submit("{}");
    EXPECT_TRUE(
        Support::waitUntil([this] { return folder.read("cache/P/0/console.txt") == "up\n"; }));
    EXPECT_TRUE(stop(0));
    EXPECT_TRUE(Support::waitUntil([this] { return counters() == "0 1 0"; }));
    expectRefusal(submit("{}"), 503, "stopped");
    expectRefusal(remove("/job/0"), 200, "stopped already");
    EXPECT_EQ(job(0)->state, JobState::CLOSED);
    EXPECT_EQ(get("/job/0/dapple").body(), "http://name:42000\n");
    EXPECT_FALSE(folder.has("cache/P/0/.status"));
}

TEST_F(DappleRenderJobsTest, EndedAndFailedApplicationsLeaveTheirSlotsTaken) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\"],\"exe\":\"true\"},"
                         "{\"displays\":[\":1\"],\"exe\":\"false\"},"
                         "{\"displays\":[\":2\"],\"exe\":\"no-such-renderer\"}"));
    start();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(submit("{}").code, 200u);
    EXPECT_TRUE(Support::waitUntil([this] { return counters() == "0 1 2"; }));
    expectRefusal(submit("{}"), 503, "all ended");
    EXPECT_EQ(job(0)->state, JobState::CLOSED);
    EXPECT_EQ(job(1)->state, JobState::ERROR);
    EXPECT_EQ(job(2)->state, JobState::ERROR);
}

TEST_F(DappleRenderJobsTest, RestartFreesTheSlots) {
    ASSERT_TRUE(initWith(slotsOf(1, "echo one")));
    start();
    EXPECT_EQ(submit("{\"n\":1}").code, 200u);
    EXPECT_TRUE(waitForState(0, JobState::CLOSED));
    EXPECT_EQ(submit("{}").code, 503u);
    ASSERT_TRUE(restart());
    start();
    EXPECT_EQ(counters(), "0 0 0");
    EXPECT_EQ(get("/job/0").code, 400u);
    EXPECT_EQ(submit("{}").body(), "http://name:4711/job/0\n");
    EXPECT_TRUE(waitForState(0, JobState::CLOSED));
    EXPECT_EQ(folder.read("cache/P/0/.meta"), "{}");
    EXPECT_EQ(folder.read("cache/P/0/console.txt"), "one\none\n");
}

TEST_F(DappleRenderJobsTest, FileInTheWayOfTheFolderIsAFailureOfTheJob) {
    ASSERT_TRUE(initWith(slotsOf(1, "true")));
    folder.write("cache/P/0", "in the way");
    Support::OutputCapture capture;
    provider->start();
    EXPECT_EQ(post("{}").code, 200u);
    EXPECT_TRUE(waitForState(0, JobState::ERROR));
    EXPECT_EQ(capture.output(),
              "Error spawning process. Called tool most likely not executable or found\n");
    EXPECT_EQ(folder.read("cache/P/0"), "in the way");
}

TEST_F(DappleRenderJobsTest, EveryJobRunsAtOnce) {
    ASSERT_TRUE(initWith(slotsOf(8, "sleep 600")));
    start();
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(submit("{}").code, 200u);
    for (std::size_t slot = 0; slot < 8; ++slot)
        EXPECT_TRUE(waitForState(slot, JobState::IN_PROCESS)) << slot;
    EXPECT_EQ(queued(), 0u);
}

TEST_F(DappleRenderJobsTest, RaceForTheSlotsGivesEachToOne) {
    constexpr int slotCount = 8;
    constexpr int clientCount = 32;
    ASSERT_TRUE(initWith(slotsOf(slotCount, "true")));
    const Support::OutputCapture capture;
    provider->start();
    std::atomic<int> waiting{clientCount};
    std::vector<Reply> replies(clientCount);
    std::vector<std::thread> clients;
    for (Reply& reply : replies) {
        clients.emplace_back([&] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            reply = post("{}");
            // The other faces look at the table at the same time.
            Reply other;
            provider->listJobsHtml(Support::makeRequest("GET", "/job"), other);
            provider->getJob(Support::makeRequest("GET", "/job/0/dapple"), other);
            provider->deleteJob(Support::makeRequest("DELETE", "/job/7"), other);
        });
    }
    for (std::thread& client : clients)
        client.join();
    std::multiset<std::string> addresses;
    for (const Reply& reply : replies) {
        EXPECT_EQ(reply.code, reply.body().empty() ? 503u : 200u);
        if (reply.code == 200u)
            addresses.insert(reply.body());
    }
    std::multiset<std::string> expected;
    for (int id = 0; id < slotCount; ++id)
        expected.insert("http://name:4711/job/" + std::to_string(id) + "\n");
    EXPECT_EQ(addresses, expected);
    EXPECT_TRUE(Support::waitUntil([this] { return counters() == "0 8 0"; }));
}

// The slot table stays open to others while a job waits to be queued.
TEST_F(DappleRenderJobsTest, JobIsQueuedUnderTheLockForJobsAlone) {
    ASSERT_TRUE(initWith(threeSlots));
    const Support::OutputCapture capture;
    boost::unique_lock<boost::mutex> accepting(provider->jobsMutex);
    std::thread client([this] { EXPECT_EQ(post("{}").code, 200u); });
    EXPECT_TRUE(Support::waitUntil([this] { return job(0) != nullptr; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(queued(), 0u);
    EXPECT_EQ(counters(), "0 0 0");
    accepting.unlock();
    client.join();
    EXPECT_EQ(queued(), 1u);
    EXPECT_EQ(counters(), "1 0 0");
}

// Slots become free and taken again under the eyes of all faces.
TEST_F(DappleRenderJobsTest, RemovalsAndSubmissionsShareTheTable) {
    ASSERT_TRUE(initWith(slotsOf(2, "true")));
    const Support::OutputCapture capture;
    std::atomic<int> accepted{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&, i] {
            for (int round = 0; round < 50; ++round) {
                if (post("{}").code == 200u)
                    ++accepted;
                Reply other;
                provider->listJobsHtml(Support::makeRequest("GET", "/job"), other);
                provider->getJob(Support::makeRequest("GET", "/job/1/dapple"), other);
                if (Job held = job(static_cast<std::size_t>(i % 2)))
                    provider->jobRemoved(held);
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    EXPECT_GT(accepted, 2);
    EXPECT_EQ(queued(), static_cast<std::size_t>(accepted));
}

} // namespace
} // namespace OstrandService

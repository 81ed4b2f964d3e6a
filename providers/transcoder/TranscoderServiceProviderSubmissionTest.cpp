#include "providers/transcoder/TranscoderServiceProviderTest.h"

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <set>
#include <thread>

namespace OstrandService {
namespace {

using Support::headerOf;
using Support::makeRequest;
using Support::waitUntil;

class TranscoderSubmissionTest : public TranscoderServiceProviderTest {
protected:
    static std::string batch(const std::string& uid, const std::string& line,
                             const std::string& more = "") {
        return "{\"uid\":\"" + uid + "\",\"commands\":[\"" + line + "\"]" + more + "}";
    }
};

TEST_F(TranscoderSubmissionTest, RefusedDescriptionStoresNothing) {
    ASSERT_TRUE(init());
    const Reply reply = post("{\"commands\":\"no list\"}");
    EXPECT_EQ(reply.code, 400u);
    EXPECT_EQ(reply.body(), "");
    EXPECT_TRUE(reply.header().entries().empty());
    EXPECT_EQ(tableSize(), 1u);
    EXPECT_TRUE(index().empty());
    EXPECT_EQ(counters(), "0 0 0");
    EXPECT_EQ(queued(), 0u);
    EXPECT_EQ(folder.read("log/messages.log").substr(24), " job refused: commands is no list\n");
}

TEST_F(TranscoderSubmissionTest, FirstJobIsOneAndOnDiskBeforeAWorkerTouchesIt) {
    ASSERT_TRUE(init());
    const Reply reply = post(batch("u", "true", ",\"reply\":\"uri\""));
    EXPECT_EQ(reply.code, 202u);
    EXPECT_EQ(reply.body(), "http://name:4712/P/1");
    EXPECT_EQ(folder.read("cache/P/1/.meta"),
              "{\"commands\":[\"true\"],\"reply\":\"uri\",\"uid\":\"u\"}");
    EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 0 }\n");
    EXPECT_EQ(folder.read("cache/P/1/.partial"), "");
    EXPECT_EQ(folder.read("cache/P/1/jobId"), "1@P");
    for (const char* name : {"binGeo", "imgGeo", "popGeo", "src", "struct", "acc"})
        EXPECT_TRUE(folder.has(std::string("cache/P/1/") + name)) << name;
    EXPECT_FALSE(folder.has("cache/P/1/.cookie"));
    EXPECT_STREQ(job(1)->resultText, "Not Run Yet");
    EXPECT_EQ(index(), (std::map<std::string, std::uint32_t>{{"u", 1}}));
    EXPECT_EQ(counters(), "1 0 0");
    EXPECT_EQ(queued(), 1u);
}

TEST_F(TranscoderSubmissionTest, RunsTheJobAndTakesTheMarkerAway) {
    ASSERT_TRUE(init());
    startWorkers(1);
    post(batch("u", "echo text"));
    EXPECT_TRUE(waitForEnd("1"));
    EXPECT_EQ(job(1)->state, JobState::CLOSED);
    EXPECT_STREQ(job(1)->resultText, "See Resource");
    EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 3 }\n");
    EXPECT_EQ(folder.read("cache/P/1/console.txt"), "text\n");
    EXPECT_EQ(counters(), "0 1 0");
}

TEST_F(TranscoderSubmissionTest, LaterSuccessHidesAFailure) {
    ASSERT_TRUE(init());
    startWorkers(1);
    post("{\"uid\":\"u\",\"commands\":[\"false\",\"true\"]}");
    EXPECT_TRUE(waitForEnd("1"));
    EXPECT_EQ(counters(), "0 1 0");
    post("{\"uid\":\"v\",\"commands\":[\"true\",\"false\"]}");
    EXPECT_TRUE(waitForEnd("2"));
    EXPECT_EQ(counters(), "0 1 1");
}

TEST_F(TranscoderSubmissionTest, JobWithoutCommandsStaysInProcess) {
    ASSERT_TRUE(init());
    startWorkers(1);
    post("{\"resource\":\"model.obj\"}");
    post("{\"uid\":\"empty\",\"commands\":[]}");
    EXPECT_TRUE(waitForEnd("1") && waitForEnd("2"));
    for (const std::size_t id : {1u, 2u}) {
        EXPECT_EQ(job(id)->stateName(), "IN PROCESS");
        EXPECT_EQ(folder.read("cache/P/" + std::to_string(id) + "/.status"),
                  "{ \"status\" : 1 }\n");
    }
    EXPECT_EQ(counters(), "0 2 0");
}

TEST_F(TranscoderSubmissionTest, KnownJobIsAnsweredAsIfNewAndNotRunAgain) {
    ASSERT_TRUE(init());
    for (const JobState state :
         {JobState::OPEN, JobState::IN_PROCESS, JobState::CLOSED, JobState::TERMINATING,
          JobState::MARKED_FOR_DELETION, JobState::TERMINATED, JobState::INVALID}) {
        const std::string first = post(batch("u", "true")).body();
        job(1)->state = state;
        EXPECT_EQ(post(batch("u", "true")).body(), first);
        EXPECT_EQ(job(1)->state, state);
        EXPECT_EQ(queued(), 1u) << jobStateName(state);
    }
    EXPECT_EQ(tableSize(), 2u);
    EXPECT_EQ(counters(), "1 0 0");
}

TEST_F(TranscoderSubmissionTest, JobThatFailedOrWasDroppedRunsAgain) {
    ASSERT_TRUE(init());
    std::size_t waiting = 1;
    post(batch("u", "true"));
    for (const JobState state : {JobState::ERROR, JobState::CANCELED, JobState::DELETED}) {
        job(1)->setState(state);
        boost::filesystem::remove(folder.path("cache/P/1/.partial"));
        boost::filesystem::remove(folder.path("cache/P/1/jobId"));
        EXPECT_EQ(post(batch("u", "true")).body(), "1@P");
        EXPECT_EQ(queued(), ++waiting);
        EXPECT_EQ(job(1)->state, JobState::OPEN);
        EXPECT_STREQ(job(1)->resultText, "Not Run Yet");
        EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 0 }\n");
        EXPECT_TRUE(folder.has("cache/P/1/.partial"));
        EXPECT_EQ(folder.read("cache/P/1/jobId"), "1@P");
    }
    EXPECT_EQ(counters(), "4 0 0");
}

// Only the wish itself is read from the later description.
TEST_F(TranscoderSubmissionTest, RerunTakesTheCommandsAndTheReplyOfTheFirst) {
    ASSERT_TRUE(init());
    startWorkers(1);
    post(batch("u", "echo first", ",\"reply\":\"uri\""));
    EXPECT_TRUE(waitForEnd("1"));
    const Reply reply = post(batch("u", "echo second", ",\"rerun\":true,\"reply\":\"id\""));
    EXPECT_EQ(reply.body(), "http://name:4712/P/1");
    EXPECT_TRUE(waitForIdle() && waitForEnd("1"));
    EXPECT_EQ(folder.read("cache/P/1/console.txt"), "first\nfirst\n");
    EXPECT_EQ(folder.read("cache/P/1/.meta"),
              "{\"commands\":[\"echo first\"],\"reply\":\"uri\",\"uid\":\"u\"}");
    EXPECT_EQ(counters(), "0 2 0");
    EXPECT_EQ(tableSize(), 2u);
}

TEST_F(TranscoderSubmissionTest, RerunOfAWaitingJobQueuesItTwice) {
    ASSERT_TRUE(init());
    post(batch("u", "echo x"));
    post(batch("u", "echo x", ",\"rerun\":true"));
    EXPECT_EQ(queued(), 2u);
    EXPECT_EQ(counters(), "2 0 0");
    startWorkers(2);
    EXPECT_TRUE(waitForIdle() && waitForEnd("1"));
    EXPECT_EQ(folder.read("cache/P/1/console.txt"), "x\nx\n");
    EXPECT_EQ(counters(), "0 2 0");
    EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 3 }\n");
}

TEST_F(TranscoderSubmissionTest, CookiesOfARerunReplaceTheFormer) {
    TranscoderJobDesc::cookie_whitelist = {"sid"};
    TranscoderJobDesc::cookieAwareCmds = {"sh"};
    ASSERT_TRUE(init());
    startWorkers(1);
    const std::string line = "sh -c 'echo $PORTICO_HTTPURL_COOKIE_HEADER'";
    Request request;
    for (const char* cookie : {"a=1; sid=2", "sid=3", ""}) {
        request.header().setParam("Cookie", cookie);
        post(batch("u", line, ",\"rerun\":true"), request);
        EXPECT_TRUE(waitForIdle() && waitForEnd("1"));
    }
    EXPECT_EQ(folder.read("cache/P/1/console.txt"), "sid=2\nsid=3\nsid=3\n");
}

TEST_F(TranscoderSubmissionTest, FailsAJobWhoseFolderCannotBeMade) {
    ASSERT_TRUE(init());
    folder.write("cache/P/1", "a file in the way");
    startWorkers(1);
    EXPECT_EQ(submit(batch("u", "true")), "1");
    EXPECT_TRUE(waitForIdle());
    EXPECT_EQ(job(1)->state, JobState::ERROR);
    EXPECT_EQ(counters(), "0 0 1");
    EXPECT_EQ(submit(batch("v", "true")), "2");
    EXPECT_TRUE(waitForIdle());
    EXPECT_EQ(counters(), "0 1 1");
}

// What is answered must be there after a restart.
TEST_F(TranscoderSubmissionTest, JobThatLostItsFolderGetsANewOne) {
    ASSERT_TRUE(init());
    post(batch("u", "true"));
    job(1)->setState(JobState::ERROR);
    boost::filesystem::remove_all(folder.path("cache/P/1"));
    EXPECT_EQ(submit(batch("u", "false")), "1");
    EXPECT_EQ(folder.read("cache/P/1/.meta"), "{\"commands\":[\"true\"],\"uid\":\"u\"}");
    EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 0 }\n");
    EXPECT_TRUE(folder.has("cache/P/1/.partial"));
    EXPECT_TRUE(folder.has("cache/P/1/acc"));
}

TEST_F(TranscoderSubmissionTest, AnswerFollowsTheClientsHost) {
    ASSERT_TRUE(init({"--replyorigin", "--delivery_service", "https://other:444/x"}));
    Request request;
    request.header().setParam("HubHost", "hub.example:99");
    EXPECT_EQ(post(batch("u", "true"), request).body(), "https://hub.example:444/P/1");
    EnvironmentList env;
    job(1)->getEnvironment(env);
    EXPECT_EQ(env, (EnvironmentList{{deliveryHostVariable, "https://hub.example:444"}}));

    request.header().setParam("HubHost", "[::1]:99");
    EXPECT_EQ(post(batch("u", "true"), request).body(), "https://[::1]:444/P/1");
    EXPECT_EQ(post(batch("u", "true")).body(), "https://:444/P/1");
}

TEST_F(TranscoderSubmissionTest, AnswerTakesTheSchemesPortWhereTheUrlHasNone) {
    ASSERT_TRUE(init({"--replyorigin", "--delivery_service", "https://other"}));
    Request request;
    request.header().setParam("HubHost", "hub");
    EXPECT_EQ(post(batch("u", "true"), request).body(), "https://hub:443/P/1");
}

// Folder "0" is loaded, but its index entry means "not there": the job of place 0 gets a new id.
TEST_F(TranscoderSubmissionTest, JobOfPlaceZeroGetsASecondPlace) {
    folder.write("cache/P/0/.meta", "{\"uid\":\"u\",\"commands\":[\"echo old\"]}");
    folder.write("cache/P/0/.status", "{ \"status\" : 3 }\n");
    ASSERT_TRUE(init());
    ASSERT_TRUE(job(0));
    const Job loaded = job(0);
    EXPECT_EQ(submit(batch("u", "echo new")), "1");
    EXPECT_EQ(job(0), loaded);
    EXPECT_EQ(job(1), loaded);
    EXPECT_EQ(loaded->id, 1u);
    EXPECT_EQ(loaded->workDir(), folder.path("cache/P/1"));
    EXPECT_EQ(folder.read("cache/P/1/.meta"), "{\"commands\":[\"echo old\"],\"uid\":\"u\"}");
    EXPECT_EQ(submit(batch("u", "echo new")), "1");
    EXPECT_EQ(tableSize(), 2u);
}

// Whoever gets an answer finds the job complete on disk, the loser of a race too.
TEST_F(TranscoderSubmissionTest, ManyAtOnceMakeOneJobThatIsOnDiskBeforeAnyAnswer) {
    constexpr int threads = 8;
    constexpr int rounds = 40;
    ASSERT_TRUE(init());
    std::atomic<int> incomplete{0};
    std::atomic<int> arrived{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < threads; ++i) {
        clients.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                ++arrived;
                while (arrived < threads * (round + 1))
                    std::this_thread::yield();
                const std::string id = submit(batch("u" + std::to_string(round), "true"));
                const std::string place = "cache/P/" + id;
                if (!folder.has(place + "/acc") || !folder.has(place + "/.meta") ||
                    !folder.has(place + "/.partial") || !folder.has(place + "/.status") ||
                    folder.read(place + "/jobId") != id + "@P")
                    ++incomplete;
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(incomplete, 0);
    EXPECT_EQ(tableSize(), rounds + 1u);
    EXPECT_EQ(index().size(), static_cast<std::size_t>(rounds));
    EXPECT_EQ(queued(), static_cast<std::size_t>(rounds));
    EXPECT_EQ(provider->numJobs, static_cast<std::uint32_t>(rounds));
}

TEST_F(TranscoderSubmissionTest, DifferentJobsAtOnceAllRun) {
    ASSERT_TRUE(init());
    startWorkers(2);
    std::vector<std::thread> clients;
    std::mutex mutex;
    std::set<std::string> ids;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&, i] {
            for (int k = 0; k < 10; ++k) {
                const std::string id =
                    submit(batch(std::to_string(i) + "." + std::to_string(k), "true"));
                const std::lock_guard<std::mutex> lock(mutex);
                ids.insert(id);
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(ids.size(), 40u);
    EXPECT_TRUE(waitForIdle());
    EXPECT_EQ(counters(), "0 40 0");
}

} // namespace
} // namespace OstrandService

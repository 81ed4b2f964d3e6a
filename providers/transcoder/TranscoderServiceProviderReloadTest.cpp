#include "providers/transcoder/TranscoderServiceProviderTest.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace OstrandService {
namespace {

using Support::headerOf;
using Support::makeRequest;

class TranscoderReloadTest : public TranscoderServiceProviderTest {
protected:
    /// A job folder as a former run left it. The uid is that of the folder's name.
    void leave(const std::string& name, const std::string& status,
               const std::string& line = "true") const {
        folder.write("cache/P/" + name + "/.meta",
                     "{\"uid\":\"u" + name + "\",\"commands\":[\"" + line + "\"]}");
        if (!status.empty())
            folder.write("cache/P/" + name + "/.status", "{ \"status\" : " + status + " }\n");
    }

    std::string loaded() const { return output.substr(std::string("Loading old jobs: ").size()); }
};

TEST_F(TranscoderReloadTest, StartsWithAnEmptyTable) {
    ASSERT_TRUE(init());
    EXPECT_EQ(output, "Loading old jobs: 0\n");
    EXPECT_EQ(tableSize(), 1u);
    EXPECT_FALSE(job(0));
}

TEST_F(TranscoderReloadTest, LoadsEachState) {
    struct Row {
        const char* status;
        const char* after;
        const char* counts;
        std::size_t waiting;
    };
    const Row rows[] = {{"0", "OPEN", "1 0 0", 1},
                        {"1", "OPEN", "1 0 0", 1},
                        {"2", "TERMINATING", "0 1 0", 0},
                        {"3", "CLOSED", "0 1 0", 0},
                        {"4", "MARKED FOR DELETION", "0 1 0", 0},
                        {"5", "CANCELED", "0 1 0", 0},
                        {"6", "ERROR", "0 0 1", 0},
                        {"7", "TERMINATED", "0 1 0", 0},
                        {"8", "DELETED", "0 1 0", 0},
                        {"9", "INVALID", "0 1 0", 0},
                        {"10", "ERROR", "0 0 1", 0},
                        {"\"3\"", "ERROR", "0 0 1", 0},
                        {"1e999", "ERROR", "0 0 1", 0},
                        {"", "ERROR", "0 0 1", 0}};
    for (const Row& row : rows) {
        boost::filesystem::remove_all(folder.path("cache"));
        leave("1", row.status);
        ASSERT_TRUE(restart());
        EXPECT_EQ(loaded(), "1\n") << row.status;
        ASSERT_TRUE(job(1)) << row.status;
        EXPECT_EQ(job(1)->stateName(), row.after) << row.status;
        EXPECT_EQ(counters(), row.counts) << row.status;
        EXPECT_EQ(queued(), row.waiting) << row.status;
        EXPECT_STREQ(job(1)->resultText, row.waiting == 1 ? "Not Run Yet" : "") << row.status;
    }
}

TEST_F(TranscoderReloadTest, RewritesOnlyWhatItChanges) {
    leave("1", "1");
    leave("2", "12");
    leave("3", "3.7");
    folder.write("cache/P/3/.partial", "");
    ASSERT_TRUE(init());
    EXPECT_EQ(folder.read("cache/P/1/.status"), "{ \"status\" : 0 }\n");
    EXPECT_EQ(folder.read("cache/P/2/.status"), "{ \"status\" : 6 }\n");
    EXPECT_EQ(folder.read("cache/P/3/.status"), "{ \"status\" : 3.7 }\n");
    EXPECT_TRUE(folder.has("cache/P/3/.partial"));
    EXPECT_FALSE(folder.has("cache/P/1/.partial"));
    EXPECT_FALSE(folder.has("cache/P/1/jobId"));
}

TEST_F(TranscoderReloadTest, TableHasHolesAndNewJobsContinueBehind) {
    leave("1", "3");
    leave("2", "3");
    leave("5", "3");
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "3\n");
    EXPECT_EQ(tableSize(), 6u);
    EXPECT_FALSE(job(0));
    EXPECT_FALSE(job(3));
    EXPECT_FALSE(job(4));
    EXPECT_EQ(index(), (std::map<std::string, std::uint32_t>{{"u1", 1}, {"u2", 2}, {"u5", 5}}));
    EXPECT_EQ(job(5)->workDir(), folder.path("cache/P/5"));
    EXPECT_EQ(job(5)->id, 5u);
    EXPECT_EQ(submit("{\"uid\":\"new\",\"commands\":[]}"), "6");
    EXPECT_EQ(submit("{\"uid\":\"u2\",\"commands\":[]}"), "2");
}

TEST_F(TranscoderReloadTest, SkipsWhatIsNoJobFolder) {
    for (const char* name : {"abc", "1x", " 1", "0x1", "1.0", "", "99999999999"})
        folder.write(std::string("cache/P/") + name + "/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    folder.makeFolder("cache/P/11");
    folder.write("cache/P/12", "a file");
    folder.write("cache/P/13/.meta", "no JSON");
    folder.write("cache/P/14/.meta", "");
    folder.write("cache/P/15/.meta", "[]");
    folder.write("cache/P/16/.meta", "{\"commands\":5}");
    folder.write("cache/P/17/.meta", "{\"uid\":\"u\",\"commands\":[]} x");
    folder.write("cache/P/18/.meta", "{\"uid\":\"u\",\"commands\":[],\"x\":1e999}");
    folder.makeFolder("cache/P/19/.meta");
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "0\n");
    EXPECT_EQ(tableSize(), 1u);
    EXPECT_TRUE(folder.has("cache/P/13/.meta"));
    EXPECT_FALSE(folder.has("cache/P/16/.status"));
}

TEST_F(TranscoderReloadTest, SkipsNumbersThatAreNoUsableIdWithALine) {
    for (const char* name : {"-1", "16777216", "2000000000", "-2147483648"})
        leave(name, "0");
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "0\n");
    EXPECT_EQ(tableSize(), 1u);
    const std::string log = folder.read("log/messages.log");
    for (const char* name : {"-1", "16777216", "2000000000", "-2147483648"})
        EXPECT_NE(log.find("old job skipped, no usable id: " + folder.path("cache/P/") + name),
                  std::string::npos)
            << name;
}

TEST_F(TranscoderReloadTest, TakesSignsAndZerosInFront) {
    leave("+7", "3");
    leave("08", "3");
    ASSERT_TRUE(init());
    EXPECT_EQ(tableSize(), 9u);
    EXPECT_EQ(job(7)->workDir(), folder.path("cache/P/+7"));
    EXPECT_EQ(job(8)->workDir(), folder.path("cache/P/08"));
}

TEST_F(TranscoderReloadTest, TakesLargeIds) {
    leave("70000", "3");
    ASSERT_TRUE(init());
    EXPECT_EQ(tableSize(), 70001u);
    EXPECT_TRUE(job(70000));
}

TEST_F(TranscoderReloadTest, OneUidInTwoFoldersPointsAtTheLaterOne) {
    for (const char* name : {"2", "10"}) {
        folder.write(std::string("cache/P/") + name + "/.meta", "{\"uid\":\"u\",\"commands\":[]}");
        folder.write(std::string("cache/P/") + name + "/.status", "{ \"status\" : 3 }\n");
    }
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "2\n");
    EXPECT_TRUE(job(2));
    EXPECT_TRUE(job(10));
    EXPECT_EQ(submit("{\"uid\":\"u\",\"commands\":[]}"), "10");
}

TEST_F(TranscoderReloadTest, TakesTheDescriptionUpToAZeroByte) {
    folder.write("cache/P/1/.meta", std::string("{\"uid\":\"u\",\"commands\":[]}\0 and more", 35));
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "1\n");
    EXPECT_EQ(index().count("u"), 1u);
}

TEST_F(TranscoderReloadTest, JudgesOldJobsByTodaysWhitelists) {
    leave("1", "3", "forbidden x");
    leave("2", "3", "allowed x");
    folder.write("hub/config/transcoderconfig.json", "{\"commandWhitelist\":[\"allowed\"]}");
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "1\n");
    EXPECT_FALSE(job(1));
    EXPECT_TRUE(job(2));
    EXPECT_NE(folder.read("log/messages.log").find("job refused: program not allowed: forbidden"),
              std::string::npos);
}

TEST_F(TranscoderReloadTest, FindsOnlyTheJobsOfItsOwnId) {
    folder.write("cache/Q/1/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    folder.write("cache/1/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    ASSERT_TRUE(init());
    EXPECT_EQ(loaded(), "0\n");
    EXPECT_TRUE(folder.has("cache/Q/1/.meta"));
}

TEST_F(TranscoderReloadTest, RunsWhatHadNotEnded) {
    leave("3", "1", "echo three");
    leave("4", "0", "echo four");
    leave("5", "6", "echo five");
    folder.write("cache/P/3/console.txt", "cut off\n");
    folder.write("cache/P/3/.partial", "");
    ASSERT_TRUE(init());
    EXPECT_EQ(counters(), "2 0 1");
    startWorkers(1);
    EXPECT_TRUE(waitForIdle() && waitForEnd("3"));
    EXPECT_EQ(folder.read("cache/P/3/console.txt"), "cut off\nthree\n");
    EXPECT_EQ(folder.read("cache/P/4/console.txt"), "four\n");
    EXPECT_FALSE(folder.has("cache/P/5/console.txt"));
    EXPECT_EQ(counters(), "0 2 1");

    // A failed job that is submitted again leaves the count of failures as it was.
    post("{\"uid\":\"u5\",\"commands\":[]}");
    EXPECT_TRUE(waitForIdle() && waitForEnd("5"));
    EXPECT_EQ(folder.read("cache/P/5/console.txt"), "five\n");
    EXPECT_EQ(counters(), "0 3 1");
}

TEST_F(TranscoderReloadTest, WaitingJobsSurviveTheEnd) {
    ASSERT_TRUE(init());
    post("{\"uid\":\"a\",\"commands\":[\"true\"]}");
    post("{\"uid\":\"b\",\"commands\":[\"true\"]}");
    ASSERT_TRUE(restart());
    EXPECT_EQ(loaded(), "2\n");
    EXPECT_EQ(counters(), "2 0 0");
    startWorkers(1);
    EXPECT_TRUE(waitForIdle() && waitForEnd("1") && waitForEnd("2"));
    EXPECT_EQ(counters(), "0 2 0");
    ASSERT_TRUE(restart());
    EXPECT_EQ(counters(), "0 2 0");
    EXPECT_EQ(submit("{\"uid\":\"b\",\"commands\":[\"true\"]}"), "2");
    EXPECT_EQ(queued(), 0u);
}

class TranscoderClearTest : public TranscoderServiceProviderTest {
protected:
    std::string configure(const std::string& body) {
        Support::OutputCapture capture;
        Reply reply;
        EXPECT_TRUE(provider->handleConfig(makeRequest("POST", "/config", body), reply));
        output = capture.output();
        errors = capture.errors();
        return std::to_string(reply.code);
    }

    const std::string clear = "{\"clearCache\":true}";
};

TEST_F(TranscoderClearTest, RemovesJobsAndBeginsAtOneAgain) {
    folder.write("cache/P/3/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    folder.write("cache/P/3/.status", "{ \"status\" : 3 }\n");
    folder.write("cache/P/3/sub/file", "");
    folder.write("cache/P/-5/.meta", "");
    folder.write("cache/P/abc/.meta", "");
    folder.makeFolder("cache/P/1");
    folder.write("cache/P/2", "a file");
    ASSERT_TRUE(init());
    EXPECT_EQ(configure(clear), "200");
    EXPECT_FALSE(folder.has("cache/P/3"));
    EXPECT_FALSE(folder.has("cache/P/-5"));
    EXPECT_TRUE(folder.has("cache/P/abc/.meta"));
    EXPECT_TRUE(folder.has("cache/P/1"));
    EXPECT_TRUE(folder.has("cache/P/2"));
    EXPECT_EQ(tableSize(), 1u);
    EXPECT_FALSE(job(0));
    EXPECT_TRUE(index().empty());
    EXPECT_EQ(counters(), "0 0 0");

    EXPECT_EQ(output, "clearing cache in: " + folder.path("cache") + "/P\n");
    const std::string path = folder.path("cache") + "/P/";
    EXPECT_NE(errors.find("clear cache " + path + "abc | abc\n"), std::string::npos);
    EXPECT_NE(errors.find("clear cache " + path + "1 | 1\n"), std::string::npos);
    EXPECT_NE(errors.find("clear cache " + path + "3 | 3\nreally delete it " + path + "3\n"),
              std::string::npos);
    EXPECT_EQ(errors.find("really delete it " + path + "abc"), std::string::npos);
    EXPECT_EQ(errors.find("really delete it " + path + "1\n"), std::string::npos);
    EXPECT_EQ(errors.find(path + "2"), std::string::npos);

    // The next job moves into the folder that stands in the way.
    EXPECT_EQ(submit("{\"uid\":\"u\",\"commands\":[]}"), "1");
    EXPECT_TRUE(folder.has("cache/P/1/.meta"));
}

TEST_F(TranscoderClearTest, IsDroppedWithoutAWordWhileAJobWaits) {
    ASSERT_TRUE(init());
    post("{\"uid\":\"u\",\"commands\":[\"true\"]}");
    EXPECT_EQ(configure(clear), "200");
    EXPECT_EQ(output + errors, "");
    EXPECT_TRUE(folder.has("cache/P/1/.meta"));
    EXPECT_EQ(tableSize(), 2u);
    EXPECT_EQ(counters(), "1 0 0");
}

TEST_F(TranscoderClearTest, IsDroppedWhileAJobRuns) {
    ASSERT_TRUE(init());
    startWorkers(1);
    post("{\"uid\":\"u\",\"commands\":[\"timeout 60 sh -c 'until test -e go; do sleep 0.02; "
         "done'\"]}");
    EXPECT_TRUE(Support::waitUntil([&] { return job(1)->state == JobState::IN_PROCESS; }));
    EXPECT_EQ(configure(clear), "200");
    EXPECT_TRUE(folder.has("cache/P/1/.meta"));
    folder.write("cache/P/1/go", "");
    EXPECT_TRUE(waitForIdle());
    EXPECT_EQ(configure(clear), "200");
    EXPECT_FALSE(folder.has("cache/P/1"));
}

TEST_F(TranscoderClearTest, MindsTheSecondQueue) {
    folder.write("cache/P/3/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    ASSERT_TRUE(init());
    provider->secondaryQueue.push(job(3));
    EXPECT_EQ(configure(clear), "200");
    EXPECT_TRUE(folder.has("cache/P/3"));
}

TEST_F(TranscoderClearTest, NeedsTheBooleanTrue) {
    folder.write("cache/P/3/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    ASSERT_TRUE(init());
    for (const char* value : {"false", "1", "\"true\"", "null", "[true]"})
        EXPECT_EQ(configure(std::string("{\"clearCache\":") + value + "}"), "200");
    EXPECT_TRUE(folder.has("cache/P/3"));
    EXPECT_EQ(tableSize(), 4u);
}

TEST_F(TranscoderClearTest, GoesOnWithoutItsFolder) {
    ASSERT_TRUE(init());
    boost::filesystem::remove_all(folder.path("cache"));
    EXPECT_EQ(configure(clear), "200");
    EXPECT_EQ(output, "");
}

// A job that was answered is never forgotten and its folder never removed under it, however close
// the clearing comes.
TEST_F(TranscoderClearTest, LosesNoJobThatIsBeingSubmitted) {
    ASSERT_TRUE(init());
    startWorkers(2);
    std::atomic<bool> done{false};
    std::thread cleaner([&] {
        const Support::OutputCapture capture;
        while (!done)
            clearCache();
    });
    std::vector<std::thread> clients;
    std::atomic<int> failed{0};
    for (int i = 0; i < 3; ++i) {
        clients.emplace_back([&, i] {
            for (int k = 0; k < 20; ++k) {
                const std::string name = std::to_string(i) + "." + std::to_string(k);
                const std::string proof = folder.path("ran." + name);
                post("{\"uid\":\"" + name + "\",\"commands\":[\"sh -c 'test -e .meta && : >" +
                     proof + "'\"]}");
                if (!Support::waitUntil([&] { return folder.has("ran." + name); }))
                    ++failed;
            }
        });
    }
    for (std::thread& client : clients)
        client.join();
    done = true;
    cleaner.join();
    EXPECT_EQ(failed, 0);
    EXPECT_TRUE(waitForIdle());
}

} // namespace
} // namespace OstrandService

#include "providers/transcoder/ServiceTranscoderJob.h"

#include "platform/hub/FileSizeLimit.h"
#include "platform/portico/ProtocolHTTP.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/Requests.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Whitelists.h"

#include <gtest/gtest.h>
#include <set>

namespace OstrandService {
namespace {

using Job = boost::shared_ptr<ServiceTranscoderJob>;
using Portico::ProtocolHTTP::Reply;
using Support::headerOf;

class ServiceTranscoderJobTest : public ::testing::Test {
protected:
    static Job create(const std::string& json, const std::string& providerId = "abc") {
        picojson::value value;
        EXPECT_EQ(picojson::parse(value, json), "") << json;
        return ServiceTranscoderJob::create(value, providerId);
    }

    /// A job of the description with its folder in the test's own.
    Job prepared(const std::string& json, std::uint32_t id = 12) const {
        Job job = create(json);
        if (job) {
            job->id = id;
            job->prepare(folder.path());
        }
        return job;
    }

    /// The names of what lies in a folder below the test's own.
    std::set<std::string> namesIn(const std::string& name) const {
        std::set<std::string> names;
        for (const auto& entry : boost::filesystem::directory_iterator(folder.path(name)))
            names.insert(entry.path().filename().string());
        return names;
    }

    Support::Whitelists whitelists;
    Support::TemporaryFolder folder;
};

TEST_F(ServiceTranscoderJobTest, TakesADescriptionAsItIs) {
    const Job job = create("{\"uid\":\"u\",\"z\":[1,{\"b\":null}],\"commands\":[\"x\"],\"a\":1.5}");
    ASSERT_TRUE(job);
    EXPECT_EQ(job->metaText,
              "{\"a\":1.5,\"commands\":[\"x\"],\"uid\":\"u\",\"z\":[1,{\"b\":null}]}");
    EXPECT_EQ(job->sourceText, "abc");
    EXPECT_EQ(job->desc.getUid(), "u");
    EXPECT_EQ(job->state, JobState::INVALID);
    EXPECT_EQ(job->workDir(), ".");
}

TEST_F(ServiceTranscoderJobTest, IsNullForARefusedDescription) {
    EXPECT_FALSE(create("{}"));
    EXPECT_FALSE(create("{\"commands\":1}"));
    EXPECT_FALSE(create("{\"commands\":[]}"));
    EXPECT_FALSE(create("{\"resource\":\"r\",\"format\":\"unknown\"}"));
    TranscoderJobDesc::cmd_whitelist = {"fettle"};
    EXPECT_FALSE(create("{\"commands\":[\"fettle a\",\"sh\"]}"));
    EXPECT_TRUE(create("{\"commands\":[\"fettle a\"]}"));
}

TEST_F(ServiceTranscoderJobTest, PreparesItsFolder) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    EXPECT_EQ(job->workDir(), folder.path() + "/12");
    EXPECT_EQ(folder.read("12/.meta"), "{\"commands\":[],\"uid\":\"u\"}");
    EXPECT_EQ(namesIn("12"), (std::set<std::string>{".meta", "binGeo", "imgGeo", "popGeo", "src",
                                                    "struct", "acc"}));
    for (const char* name : {"binGeo", "imgGeo", "popGeo", "src", "struct", "acc"})
        EXPECT_TRUE(boost::filesystem::is_directory(folder.path("12") + "/" + name)) << name;
}

TEST_F(ServiceTranscoderJobTest, WritesTheDescriptionsCookiesInKeyOrder) {
    prepared("{\"uid\":\"u\",\"commands\":[],\"cookies\":{\"b\":\"2 x\",\"a\":\"\"}}");
    EXPECT_EQ(folder.read("12/.cookie"), "a\n\nb\n2 x\n");
    EXPECT_FALSE(folder.has("12/.partial"));
    // They may open a session elsewhere: nobody but the service's user reads them.
    EXPECT_EQ(boost::filesystem::status(folder.path("12/.cookie")).permissions(),
              boost::filesystem::owner_read | boost::filesystem::owner_write);
}

TEST_F(ServiceTranscoderJobTest, MovesIntoAFolderThatIsThere) {
    folder.write("12/src/old", "kept");
    folder.write("12/.meta", "old");
    prepared("{\"uid\":\"u\",\"commands\":[]}");
    EXPECT_EQ(folder.read("12/src/old"), "kept");
    EXPECT_EQ(folder.read("12/.meta"), "{\"commands\":[],\"uid\":\"u\"}");
    EXPECT_TRUE(folder.has("12/acc"));
}

TEST_F(ServiceTranscoderJobTest, SkipsWhatIsBehindAFolderThatCannotBeMade) {
    folder.write("12/src", "a file");
    prepared("{\"uid\":\"u\",\"commands\":[],\"cookies\":{\"a\":\"1\"}}");
    EXPECT_EQ(namesIn("12"), (std::set<std::string>{".meta", "binGeo", "imgGeo", "popGeo", "src"}));
}

TEST_F(ServiceTranscoderJobTest, LeavesAFileInTheWayAlone) {
    folder.write("12", "a file");
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[\"true\"]}");
    job->writeJobId();
    job->markPartial();
    job->setState(JobState::OPEN);
    job->clearPartial();
    EXPECT_EQ(folder.read("12"), "a file");
    EXPECT_EQ(job->state, JobState::OPEN);
    EXPECT_EQ(job->workDir(), folder.path() + "/12");
}

TEST_F(ServiceTranscoderJobTest, WritesItsIdWithTheProviders) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    job->writeJobId();
    EXPECT_EQ(folder.read("12/jobId"), "12@abc");
    folder.write("12/jobId", "something longer than that");
    job->writeJobId();
    EXPECT_EQ(folder.read("12/jobId"), "12@abc");
}

TEST_F(ServiceTranscoderJobTest, MarksAndUnmarks) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    EXPECT_TRUE(job->markPartial());
    EXPECT_EQ(folder.read("12/.partial"), "");
    EXPECT_TRUE(job->clearPartial());
    EXPECT_FALSE(folder.has("12/.partial"));
    EXPECT_TRUE(job->clearPartial());
    boost::filesystem::remove_all(folder.path("12"));
    EXPECT_TRUE(job->clearPartial());
    EXPECT_FALSE(job->markPartial());
    EXPECT_FALSE(folder.has("12"));
}

// The second run writes its results where those of the first one lie.
TEST_F(ServiceTranscoderJobTest, StaysMarkedUntilItsLastRunHasEnded) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    job->markPartial();
    job->markPartial();
    EXPECT_TRUE(job->clearPartial());
    EXPECT_TRUE(folder.has("12/.partial"));
    EXPECT_TRUE(job->clearPartial());
    EXPECT_FALSE(folder.has("12/.partial"));
}

TEST_F(ServiceTranscoderJobTest, StaysMarkedUntilItsStateIsOnDisk) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    ASSERT_TRUE(job->openFolder());
    {
        const FileSizeLimit full(0);
        job->setState(JobState::CLOSED);
        EXPECT_EQ(job->state, JobState::CLOSED);
        EXPECT_FALSE(job->clearPartial());
        EXPECT_FALSE(job->settle());
        EXPECT_TRUE(folder.has("12/.partial"));
    }
    EXPECT_TRUE(job->settle());
    EXPECT_FALSE(folder.has("12/.partial"));
    EXPECT_EQ(folder.read("12/.status"), "{ \"status\" : 3 }\n");
}

TEST_F(ServiceTranscoderJobTest, DoesNotWaitForAFolderInThePlaceOfItsState) {
    folder.write("12/.status/in the way", "");
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    EXPECT_TRUE(job->openFolder());
    job->setState(JobState::CLOSED);
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_TRUE(job->clearPartial());
    EXPECT_FALSE(folder.has("12/.partial"));
    EXPECT_TRUE(folder.has("12/.status/in the way"));
}

TEST_F(ServiceTranscoderJobTest, LeavesNothingToSettleInAFolderThatHasGone) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    ASSERT_TRUE(job->openFolder());
    boost::filesystem::remove_all(folder.path("12"));
    job->setState(JobState::ERROR);
    EXPECT_TRUE(job->clearPartial());
    EXPECT_FALSE(folder.has("12"));
}

TEST_F(ServiceTranscoderJobTest, FailsWhereItsFolderDoesNotTellOfIt) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[\"touch ran\"]}");
    boost::filesystem::remove(folder.path("12/.meta"));
    EXPECT_FALSE(job->openFolder());
    job->run();
    EXPECT_EQ(job->state, JobState::ERROR);
    EXPECT_FALSE(folder.has("12/ran"));
    folder.write("12/.meta", "{}");
    EXPECT_TRUE(job->openFolder());
    job->run();
    EXPECT_EQ(job->state, JobState::CLOSED);
    EXPECT_TRUE(folder.has("12/ran"));
}

// One line for each command, as where the folder goes while the job waits.
TEST_F(ServiceTranscoderJobTest, FailsToStartWithoutAFolder) {
    folder.write("12", "in the way");
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[\"true\",\"true\"]}");
    EXPECT_FALSE(job->openFolder());
    Support::OutputCapture capture;
    job->run();
    const std::string line =
        "Error spawning process. Called tool most likely not executable or found\n";
    EXPECT_EQ(capture.output(), line + line);
    EXPECT_EQ(job->state, JobState::ERROR);
    const Job toolJob = prepared("{\"resource\":\"r\"}");
    EXPECT_FALSE(toolJob->openFolder());
    toolJob->run();
    EXPECT_EQ(toolJob->state, JobState::IN_PROCESS);
}

TEST_F(ServiceTranscoderJobTest, EveryStateIsOnDiskAtOnce) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[\"sh -c 'cp .status one'\","
                             "\"sh -c 'cp .status two; exit 1'\"]}");
    job->setState(JobState::OPEN);
    EXPECT_EQ(folder.read("12/.status"), "{ \"status\" : 0 }\n");
    EXPECT_EQ(job->state.load(), JobState::OPEN);
    job->run();
    EXPECT_EQ(folder.read("12/one"), "{ \"status\" : 1 }\n");
    EXPECT_EQ(folder.read("12/two"), "{ \"status\" : 3 }\n");
    EXPECT_EQ(folder.read("12/.status"), "{ \"status\" : 6 }\n");
}

TEST_F(ServiceTranscoderJobTest, UnreadableStatusIsRewritten) {
    const Job job = prepared("{\"uid\":\"u\",\"commands\":[]}");
    folder.write("12/.status", "{ \"status\" : 12 }");
    job->readStatus();
    EXPECT_EQ(folder.read("12/.status"), "{ \"status\" : 6 }\n");
    folder.write("12/.status", "{\"status\":5}");
    job->readStatus();
    EXPECT_EQ(job->state, JobState::CANCELED);
    EXPECT_EQ(folder.read("12/.status"), "{\"status\":5}");
}

TEST_F(ServiceTranscoderJobTest, HasTheCommandsOfABatch) {
    const Job batch = create("{\"commands\":[\"a  'b' \",[\"c\",\"d\",5]]}");
    ServiceJobBase::Commands commands{{"first"}};
    batch->getCommands(commands);
    EXPECT_EQ(commands, (ServiceJobBase::Commands{{"first"}, {"a  'b' "}, {"c"}}));

    const Job tool = create("{\"resource\":\"r\"}");
    ServiceJobBase::Commands none;
    tool->getCommands(none);
    EXPECT_TRUE(none.empty());
}

TEST_F(ServiceTranscoderJobTest, HasTheVariablesCookiesAndHost) {
    TranscoderJobDesc::env_whitelist = {"A", "B"};
    TranscoderJobDesc::cookie_whitelist = {"sid"};
    const Job job =
        create("{\"uid\":\"u\",\"commands\":[],\"environment\":{\"B\":\"2\",\"A\":\"1\"}}");
    EnvironmentList env{{"old", "dropped"}};
    job->getEnvironment(env);
    EXPECT_EQ(env, (EnvironmentList{{"A", "1"}, {"B", "2"}}));
    job->setDeliveryHost("http://h:1");
    job->getEnvironment(env);
    EXPECT_EQ(env, (EnvironmentList{{"A", "1"}, {"B", "2"}, {deliveryHostVariable, "http://h:1"}}));
    job->setCookies("sid=2");
    job->getEnvironment(env);
    EXPECT_EQ(env, (EnvironmentList{{"A", "1"},
                                    {"B", "2"},
                                    {cookieVariable, "sid=2"},
                                    {deliveryHostVariable, "http://h:1"}}));
}

class ServiceTranscoderJobCookiesTest : public ServiceTranscoderJobTest {
protected:
    /// What is kept of a "Cookie" header; "(none)" where nothing is.
    static std::string keptOf(const Job& job) {
        EnvironmentList env;
        job->getEnvironment(env);
        return env.empty() ? "(none)" : env.front().second;
    }

    std::string kept(const std::string& header) const {
        job->setCookies(header);
        return keptOf(job);
    }

    const Job job = create("{\"uid\":\"u\",\"commands\":[]}");
};

TEST_F(ServiceTranscoderJobCookiesTest, KeepsNothingWithAnEmptyWhitelist) {
    EXPECT_EQ(kept("a=1; b=2"), "(none)");
}

TEST_F(ServiceTranscoderJobCookiesTest, ComparesTheBeginningOfTheWholeToken) {
    TranscoderJobDesc::cookie_whitelist = {"sid"};
    EXPECT_EQ(kept("a=1; sid=2 ;b=3"), "sid=2");
    EXPECT_EQ(kept("sid2=1"), "sid2=1");
    EXPECT_EQ(kept("Sid=1; xsid=2; si=3; s"), "(none)");
    EXPECT_EQ(kept("sid"), "sid");
    TranscoderJobDesc::cookie_whitelist = {"sid=1"};
    EXPECT_EQ(kept("sid=12; sid=2"), "sid=12");
}

TEST_F(ServiceTranscoderJobCookiesTest, PutsTokensTogetherWithNothingBetween) {
    TranscoderJobDesc::cookie_whitelist = {"a", "b", "a="};
    EXPECT_EQ(kept("a=1; b=2"), "a=1b=2");
    EXPECT_EQ(kept(";;\t a=1 \t; ;b=2;"), "a=1b=2");
    // A header that came twice is joined with a comma and is one token from there on.
    EXPECT_EQ(kept("a=1, x=2; b=3"), "a=1, x=2b=3");
}

TEST_F(ServiceTranscoderJobCookiesTest, EmptyEntryLetsEverythingThrough) {
    TranscoderJobDesc::cookie_whitelist = {""};
    EXPECT_EQ(kept("x=1 ; y = 2"), "x=1y = 2");
}

TEST_F(ServiceTranscoderJobCookiesTest, EmptyHeaderKeepsTheFormerValueAndNoMatchClearsIt) {
    TranscoderJobDesc::cookie_whitelist = {"sid"};
    EXPECT_EQ(kept("sid=1"), "sid=1");
    EXPECT_EQ(kept(""), "sid=1");
    EXPECT_EQ(kept("other=1"), "(none)");
    EXPECT_EQ(kept("sid=2"), "sid=2");
    EXPECT_EQ(kept(" "), "(none)");
}

class ServiceTranscoderJobReplyTest : public ServiceTranscoderJobTest {
protected:
    static Reply replyOf(const std::string& json) {
        const Job job = create(json, "P");
        Reply reply;
        if (!job)
            return reply;
        job->id = 7;
        job->writeJobReply(reply, "http://h:1");
        EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html") << json;
        return reply;
    }

    static std::string codeAndBody(const std::string& fields) {
        const Reply reply = replyOf("{\"uid\":\"u\"," + fields + "}");
        EXPECT_EQ(reply.header().entries().size(), 1u) << fields;
        return std::to_string(reply.code) + " " + reply.body();
    }

    const std::string tool = "\"resource\":\"r\"";
    const std::string batch = "\"commands\":[\"true\"]";
};

TEST_F(ServiceTranscoderJobReplyTest, RedirectsAToolJob) {
    for (const char* wish :
         {"\"redirect\":true", "\"reply\":\"redirect\"", "\"redirect\":true,\"reply\":\"uri\""}) {
        const Reply reply = replyOf("{\"uid\":\"u\"," + tool + "," + wish + "}");
        EXPECT_EQ(reply.code, 302u);
        EXPECT_EQ(headerOf(reply, "Location"), "http://h:1/P/7/index.x3d");
        EXPECT_EQ(headerOf(reply, "Access-Control-Expose-Headers"), "Location");
        EXPECT_EQ(reply.header().entries().size(), 3u);
        EXPECT_EQ(reply.body(), "<html><header><title>Moved</title></header><body>"
                                "<h1>Moved</h1><p>This page has moved to <a href=\""
                                "http://h:1/P/7/index.x3d\">http://h:1/P/7/index.x3d</a>.</p>"
                                "</body></html>");
    }
}

TEST_F(ServiceTranscoderJobReplyTest, AnswersAToolJobByItsReplyType) {
    EXPECT_EQ(codeAndBody(tool), "202 7@P");
    EXPECT_EQ(codeAndBody(tool + ",\"reply\":\"id\""), "202 7@P");
    EXPECT_EQ(codeAndBody(tool + ",\"reply\":\"file\""), "202 http://h:1/P/7/index.x3d");
    EXPECT_EQ(codeAndBody(tool + ",\"reply\":\"file\",\"format\":\"glb\""),
              "202 http://h:1/P/7/index.glb");
    EXPECT_EQ(codeAndBody(tool + ",\"reply\":\"uri\""), "202 http://h:1/P/7");
    EXPECT_EQ(codeAndBody(tool + ",\"reply\":\"origin\""), "202 http://h:1/P/7");
}

// A batch has no result file of a known name: redirect and file fall to the plain id.
TEST_F(ServiceTranscoderJobReplyTest, AnswersABatchByItsReplyType) {
    EXPECT_EQ(codeAndBody(batch), "202 7@P");
    EXPECT_EQ(codeAndBody(batch + ",\"reply\":\"redirect\""), "202 7@P");
    EXPECT_EQ(codeAndBody(batch + ",\"redirect\":true"), "202 7@P");
    EXPECT_EQ(codeAndBody(batch + ",\"reply\":\"file\""), "202 7@P");
    EXPECT_EQ(codeAndBody(batch + ",\"reply\":\"uri\""), "202 http://h:1/P/7");
    EXPECT_EQ(codeAndBody(batch + ",\"reply\":\"origin\""), "202 http://h:1/P/7");
}

TEST_F(ServiceTranscoderJobReplyTest, BatchWithoutAWishTakesTheDefault) {
    TranscoderJobDesc::secCmdDefaultReplyType = ReplyType::Origin;
    EXPECT_EQ(codeAndBody(batch), "202 http://h:1/P/7");
    EXPECT_EQ(codeAndBody(batch + ",\"reply\":\"id\""), "202 7@P");
    EXPECT_EQ(codeAndBody(tool), "202 7@P");
}

TEST_F(ServiceTranscoderJobReplyTest, NamesTheResultByItsFormat) {
    for (const char* name : {"x3d", "x3db", "html", "x3dv", "gltf", "glb"}) {
        const Job job = create("{\"resource\":\"r\",\"format\":\"" + std::string(name) + "\"}");
        EXPECT_EQ(job->resultFileName(), "index." + std::string(name));
    }
}

} // namespace
} // namespace OstrandService

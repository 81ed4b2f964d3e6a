#include "providers/transcoder/TranscoderServiceProviderTest.h"

#include "providers/transcoder/DeliveryWebPage.h"

#include <boost/lexical_cast.hpp>
#include <gtest/gtest.h>

namespace OstrandService {

std::unique_ptr<Portico::WebPage>
TranscoderServiceProviderTest::makeDeliveryPage(const std::string& prefix,
                                                const std::string& root) {
    return std::make_unique<TranscoderServiceProvider::DeliveryWebPage>(prefix, root);
}

namespace {

using Support::hasCors;
using Support::hasNoCors;
using Support::headerOf;
using Support::makeRequest;

class TranscoderStatesTest : public TranscoderServiceProviderTest {
protected:
    Reply ask(const std::string& body, const std::string& method = "POST") {
        Reply reply;
        EXPECT_TRUE(
            provider->updateJobStates(makeRequest(method, "/job/updateState", body), reply));
        return reply;
    }

    /// The answer about one URI.
    std::string stateOf(const std::string& uri) {
        return ask("{\"Parameters\":[[0,\"" + uri + "\"]]}").body();
    }

    void addJobs(int count) {
        for (int i = 1; i <= count; ++i)
            post("{\"uid\":\"" + std::to_string(i) + "\",\"commands\":[\"true\"]}");
    }
};

TEST_F(TranscoderStatesTest, TellsEachStatesCode) {
    ASSERT_TRUE(init());
    addJobs(1);
    const std::uint32_t codes[] = {202, 202, 404, 200, 404, 404, 404, 200, 404, 404, 404};
    for (std::uint32_t state = 0; state < 11; ++state) {
        job(1)->state = static_cast<JobState>(state);
        EXPECT_EQ(stateOf("http://h/P/1"),
                  "[[" + std::to_string(codes[state]) + ",\"http://h/P/1\"]]")
            << state;
    }
}

TEST_F(TranscoderStatesTest, AnswersWithTypeAndCorsWhateverTheMethod) {
    ASSERT_TRUE(init());
    for (const char* method : {"POST", "GET", "PUT", ""}) {
        auto request = makeRequest(method, "/job/updateState", "{\"Parameters\":[]}");
        request.header().setParam("Origin", "http://me");
        Reply reply;
        EXPECT_TRUE(provider->updateJobStates(request, reply));
        EXPECT_EQ(reply.code, 200u) << method;
        EXPECT_EQ(reply.body(), "[]") << method;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "application/json") << method;
        EXPECT_TRUE(hasCors(reply, "http://me")) << method;
    }
}

TEST_F(TranscoderStatesTest, RefusesOtherDocuments) {
    ASSERT_TRUE(init());
    for (const char* body :
         {"", "text", "[]", "1", "{}", "{\"Parameters\":{}}", "{\"Parameters\":null}",
          "{\"parameters\":[]}", "{\"Parameters\":[]} x", "{\"Parameters\":[1e999]}"}) {
        const Reply reply = ask(body);
        EXPECT_EQ(reply.code, 400u) << body;
        EXPECT_EQ(reply.body(), "") << body;
        EXPECT_TRUE(reply.header().entries().empty()) << body;
    }
}

TEST_F(TranscoderStatesTest, LeavesOutElementsOfAnotherForm) {
    ASSERT_TRUE(init());
    addJobs(1);
    EXPECT_EQ(ask("{\"Parameters\":[1,null,\"http://h/P/1\",{},[],[0],[\"0\",\"x/P/1\"],"
                  "[0,1],[null,\"x/P/1\"],[0,[\"x/P/1\"]]]}")
                  .body(),
              "[]");
    EXPECT_EQ(ask("{\"Parameters\":[1,[-2.5,\"x/P/1\",\"more\",{}],2]}").body(),
              "[[202,\"x/P/1\"]]");
}

TEST_F(TranscoderStatesTest, CommasGoByWhatIsWritten) {
    ASSERT_TRUE(init());
    addJobs(2);
    EXPECT_EQ(
        ask("{\"Parameters\":[[0,\"x/Q/1\"],[0,\"x/P/2\"],[0,\"x/P/9\"],[0,\"x/P/1\"]]}").body(),
        "[[202,\"x/P/2\"],[202,\"x/P/1\"]]");
}

TEST_F(TranscoderStatesTest, FindsTheJobByTheLastTwoPieces) {
    ASSERT_TRUE(init());
    addJobs(1);
    for (const char* uri : {"/P/1", "//P/1", "http://h:1/a/b/P/1", "x/P/+1", "x/P/01"})
        EXPECT_EQ(stateOf(uri), std::string("[[202,\"") + uri + "\"]]");
    for (const char* uri :
         {"", "1", "/1", "P/1", "/", "//", "x/p/1", "x/PP/1", "x/ P/1", "x//1", "x/P/1/index.x3d",
          "x/P/2", "x/P/0", "x/P/-1", "x/P/2147483647", "x/P/-2147483648", "x/Q/xyz", "xyz"})
        EXPECT_EQ(stateOf(uri), "[]") << uri;
}

TEST_F(TranscoderStatesTest, WritesTheUriUnescaped) {
    ASSERT_TRUE(init());
    addJobs(1);
    EXPECT_EQ(stateOf("a\\\"b/P/1"), "[[202,\"a\"b/P/1\"]]");
}

TEST_F(TranscoderStatesTest, ThrowsForAnOwnJobWithoutANumber) {
    ASSERT_TRUE(init());
    for (const char* uri : {"x/P/xyz", "x/P/", "x/P/1x", "x/P/ 1", "x/P/1 ", "x/P/99999999999",
                            "x/P/2147483648", "x/P/0x1", "x/P/1.0"}) {
        const auto request = makeRequest("POST", "/job/updateState",
                                         std::string("{\"Parameters\":[[0,\"") + uri + "\"]]}");
        Reply reply;
        EXPECT_THROW(provider->updateJobStates(request, reply), boost::bad_lexical_cast) << uri;
    }
}

TEST_F(TranscoderStatesTest, DeletingIsAnsweredAndDoesNothing) {
    ASSERT_TRUE(init());
    addJobs(1);
    for (const char* uri : {"/job/1", "/job/9", "/job/x"}) {
        Reply reply;
        EXPECT_TRUE(provider->handleJobResource(makeRequest("DELETE", uri), reply));
        EXPECT_EQ(reply.code, 200u);
        EXPECT_EQ(reply.body(), "");
        EXPECT_TRUE(hasCors(reply));
    }
    EXPECT_EQ(job(1)->state, JobState::OPEN);
    EXPECT_TRUE(folder.has("cache/P/1/.meta"));
    EXPECT_EQ(queued(), 1u);
}

TEST_F(TranscoderStatesTest, FinishingCountsAndTakesTheMarkerAway) {
    ASSERT_TRUE(init());
    addJobs(2);
    boost::shared_ptr<ServiceJobBase> finished = job(1);
    finished->state = JobState::TERMINATED;
    provider->jobFinished(finished);
    EXPECT_EQ(counters(), "1 0 1");
    EXPECT_FALSE(folder.has("cache/P/1/.partial"));
    EXPECT_TRUE(folder.has("cache/P/2/.partial"));

    finished = job(2);
    boost::filesystem::remove_all(folder.path("cache/P/2"));
    provider->jobFinished(finished);
    EXPECT_EQ(counters(), "0 1 1");
    EXPECT_FALSE(folder.has("cache/P/2"));

    boost::shared_ptr<ServiceJobBase> none;
    provider->jobFinished(none);
    provider->jobRemoved(finished);
    EXPECT_EQ(counters(), "0 1 1");
}

} // namespace
} // namespace OstrandService

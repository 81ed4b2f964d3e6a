#include "framework/ServiceProvider.h"

#include "platform/hub/Icon.h"
#include "tests/support/HostOptions.h"
#include "tests/support/Requests.h"
#include "tests/support/TestProvider.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::hasNoCors;
using Support::headerOf;
using Support::HostOptions;
using Support::makeRequest;
using Support::ServerPages;
using Support::TestProvider;
using Reply = ServiceProvider::Reply;
using Events = std::vector<std::string>;

class ServiceProviderRoutesTest : public ::testing::Test {
protected:
    Reply post(const std::string& body) {
        Reply reply;
        EXPECT_TRUE(provider.handleJobRequest(makeRequest("POST", "/job", body), reply));
        return reply;
    }

    TestProvider provider;
};

TEST_F(ServiceProviderRoutesTest, ListsInHtmlUnlessJsonIsAskedForExactly) {
    for (const char* accept : {"", "*/*", "application/json, text/html", "Application/JSON",
                               "application/json;q=1", " application/json"}) {
        auto request = makeRequest("GET", "/job");
        request.header().setParam("Accept", accept);
        Reply reply;
        EXPECT_TRUE(provider.handleJobRequest(request, reply));
        EXPECT_EQ(reply.body(), "listJobsHtml") << accept;
    }
    Reply reply;
    EXPECT_TRUE(provider.handleJobRequest(makeRequest("GET", "/job"), reply));
    EXPECT_EQ(reply.body(), "listJobsHtml");
    auto request = makeRequest("GET", "/job");
    request.header().setParam("accept", "application/json");
    EXPECT_TRUE(provider.handleJobRequest(request, reply));
    EXPECT_EQ(reply.body(), "listJobsJson");
    EXPECT_TRUE(hasCors(reply));
}

TEST_F(ServiceProviderRoutesTest, RefusesOtherMethodsWithoutCors) {
    for (const char* method : {"HEAD", "PUT", "DELETE", "OPTIONS", "get", "post", "", "GET "}) {
        Reply reply;
        EXPECT_TRUE(provider.handleJobRequest(makeRequest(method, "/job", "{}"), reply));
        EXPECT_EQ(reply.code, 400u) << method;
        EXPECT_EQ(reply.body(), "") << method;
        EXPECT_TRUE(hasNoCors(reply)) << method;
    }
    for (const char* method : {"HEAD", "PUT", "POST", "OPTIONS", "get", "delete", ""}) {
        Reply reply;
        EXPECT_TRUE(provider.handleJobResource(makeRequest(method, "/job/1"), reply));
        EXPECT_EQ(reply.code, 400u) << method;
        EXPECT_EQ(reply.body(), "") << method;
        EXPECT_TRUE(hasNoCors(reply)) << method;
    }
    EXPECT_EQ(provider.events(), Events());
}

TEST_F(ServiceProviderRoutesTest, AddsAnObject) {
    auto request = makeRequest("POST", "/job", " {\"a\" : 1} ");
    request.header().setParam("Origin", "http://me");
    Reply reply;
    EXPECT_TRUE(provider.handleJobRequest(request, reply));
    EXPECT_EQ(provider.events(), (Events{"addJob {\"a\":1}"}));
    EXPECT_TRUE(hasCors(reply, "http://me"));
    EXPECT_EQ(reply.code, 200u);
}

TEST_F(ServiceProviderRoutesTest, RefusesABodyThatIsNoJsonWithoutCors) {
    for (const char* body : {"", " ", "{", "{} x", "{}{}", "[{}", "{\"a\":1e999}", "'a'"}) {
        const Reply reply = post(body);
        EXPECT_EQ(reply.code, 400u) << body;
        EXPECT_EQ(reply.body(), "") << body;
        EXPECT_TRUE(hasNoCors(reply)) << body;
    }
    EXPECT_EQ(provider.events(), Events());
}

TEST_F(ServiceProviderRoutesTest, LeavesTheReplyAloneForOtherValues) {
    for (const char* body : {"1", "\"text\"", "null", "true"}) {
        const Reply reply = post(body);
        EXPECT_EQ(reply.code, 200u) << body;
        EXPECT_EQ(reply.body(), "") << body;
        EXPECT_TRUE(hasCors(reply)) << body;
    }
}

TEST_F(ServiceProviderRoutesTest, AnswersABatchByPairs) {
    int count = 0;
    provider.onAddJob = [&count](const picojson::value&, Reply& reply) {
        reply.header().setParam("Content-Type", "text/html");
        if (++count == 2) {
            reply.setCode(503);
            return false;
        }
        reply.body() = "http://h/\"" + std::to_string(count) + "\n";
        return true;
    };
    const Reply reply = post("[{},{},{}]");
    EXPECT_EQ(reply.code, 200u);
    EXPECT_EQ(reply.body(), "[[200,\"http://h/\"1\n\"],[503,\"\"],[200,\"http://h/\"3\n\"]]");
    EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)");
    EXPECT_TRUE(hasCors(reply));
}

// The comma goes by the place in the list, elements that are skipped included.
TEST_F(ServiceProviderRoutesTest, CountsSkippedElementsOfABatch) {
    EXPECT_EQ(post("[]").body(), "[]");
    EXPECT_EQ(post("[1,null]").body(), "[]");
    EXPECT_EQ(post("[1,{}]").body(), "[,[200,\"addJob {}\"]]");
    EXPECT_EQ(post("[{},1,{}]").body(), "[[200,\"addJob {}\"],[200,\"addJob {}\"]]");
    EXPECT_EQ(post("[[],[{}],{}]").body(), "[,[200,\"addJob {}\"]]");
    EXPECT_EQ(post("[]").code, 200u);
}

TEST_F(ServiceProviderRoutesTest, ForwardsGetAndDeleteOfAJob) {
    Reply reply;
    EXPECT_TRUE(provider.handleJobResource(makeRequest("GET", "/job/1"), reply));
    EXPECT_EQ(reply.body(), "getJob");
    EXPECT_TRUE(hasCors(reply));
    Reply other;
    EXPECT_TRUE(provider.handleJobResource(makeRequest("DELETE", "/job/1"), other));
    EXPECT_EQ(other.body(), "deleteJob");
    EXPECT_TRUE(hasCors(other));
}

TEST_F(ServiceProviderRoutesTest, PassesFalseOnWithoutCors) {
    provider.result = false;
    for (const char* method : {"GET", "POST"}) {
        Reply reply;
        EXPECT_FALSE(provider.handleJobRequest(makeRequest(method, "/job", "{}"), reply));
        EXPECT_TRUE(hasNoCors(reply)) << method;
    }
    for (const char* method : {"GET", "DELETE"}) {
        Reply reply;
        EXPECT_FALSE(provider.handleJobResource(makeRequest(method, "/job/1"), reply));
        EXPECT_TRUE(hasNoCors(reply)) << method;
    }
    // The result of a batch's jobs does not matter.
    EXPECT_TRUE(hasCors(post("[{}]")));
}

class ServiceProviderPagesTest : public ::testing::Test {
protected:
    static std::string ask(const Portico::WebServer& server, const std::string& method,
                           const std::string& uri) {
        const Reply reply = ServerPages::ask(server, makeRequest(method, uri, "{}"));
        return std::to_string(reply.code) + " " + reply.body();
    }

    HostOptions options;
    TestProvider provider;
    const Portico::WebServer& plain = HostOptions::host().webServer;
    const Portico::WebServer& secure = HostOptions::host().sslWebServer;
};

TEST_F(ServiceProviderPagesTest, PlainServerHasFiveRoutes) {
    HostOptions::host().ssl = false;
    provider.addPages();
    EXPECT_EQ(ask(plain, "GET", "/"), "200 front page");
    EXPECT_EQ(ask(plain, "HEAD", "/"), "200 front page");
    EXPECT_EQ(ask(plain, "GET", "/job"), "200 listJobsHtml");
    EXPECT_EQ(ask(plain, "POST", "/job"), "200 addJob {}");
    EXPECT_EQ(ask(plain, "POST", "/job/add"), "200 addJob {}");
    EXPECT_EQ(ask(plain, "GET", "/job/add"), "200 listJobsHtml");
    EXPECT_EQ(ask(plain, "GET", "/job/7"), "200 getJob");
    EXPECT_EQ(ask(plain, "DELETE", "/job/a/b/7"), "200 deleteJob");
    EXPECT_EQ(ask(plain, "GET", "/job/"), "200 getJob");
    EXPECT_EQ(ask(plain, "GET", "/jobs"), "404 ");
    EXPECT_EQ(ask(secure, "GET", "/"), "404 ");
}

TEST_F(ServiceProviderPagesTest, IconIsThereForEveryMethod) {
    provider.addPages();
    for (const char* method : {"GET", "POST"}) {
        const Reply reply = ServerPages::ask(plain, makeRequest(method, "/favicon.ico"));
        EXPECT_EQ(reply.code, 200u);
        EXPECT_EQ(reply.body(), std::string(OstrandHub::ostrandHub_icon_col_sans_ico, 13752));
        EXPECT_EQ(headerOf(reply, "Content-Type"), "image/x-icon");
        EXPECT_TRUE(hasNoCors(reply));
    }
}

// Without a certificate the server never starts, and has its pages all the same.
TEST_F(ServiceProviderPagesTest, SecureServerHasThreeRoutes) {
    HostOptions::host().ssl = true;
    provider.addPages();
    EXPECT_EQ(ask(secure, "GET", "/"), "200 front page");
    EXPECT_EQ(ask(secure, "POST", "/job"), "200 addJob {}");
    EXPECT_EQ(ask(secure, "GET", "/job/7"), "200 getJob");
    EXPECT_EQ(ask(secure, "POST", "/job/add"), "400 ");
    EXPECT_EQ(ask(secure, "GET", "/job/add"), "200 getJob");
    EXPECT_EQ(ask(secure, "GET", "/favicon.ico"), "404 ");
    EXPECT_EQ(ask(plain, "POST", "/job/add"), "200 addJob {}");
}

} // namespace
} // namespace OstrandService

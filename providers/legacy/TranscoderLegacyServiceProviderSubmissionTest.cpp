#include "providers/legacy/TranscoderLegacyServiceProviderTest.h"

#include <boost/lexical_cast.hpp>
#include <gtest/gtest.h>
#include <utility>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::hasNoCors;
using Support::headerOf;
using Support::makeRequest;

namespace States = LegacyJobStates;

class LegacySubmissionTest : public TranscoderLegacyServiceProviderTest {
protected:
    using Query = std::vector<std::pair<const char*, const char*>>;

    LegacySubmissionTest() { EXPECT_TRUE(init({"-t", "0", "--delivery_service", "http://d:1"})); }

    static Reply post(const std::string& json, const std::string& uri = "/job") {
        return ask(makeRequest("POST", uri, json));
    }

    static Reply form(const Query& query) {
        Request request = makeRequest("GET", "/job/add");
        for (const auto& parameter : query)
            request.query.setParam(parameter.first, parameter.second);
        return ask(request);
    }

    /// The description that is made of a form and kept; the job is the first.
    std::string formText(const Query& query) {
        store().clear();
        EXPECT_NE(form(query).code, 400u);
        return folder.read("cache/1/.meta");
    }

    /// Expects the refusal of a submission, and its lines in the log.
    void expectRefused(const Reply& reply, const std::string& reason) const {
        EXPECT_EQ(reply.code, 400u);
        EXPECT_EQ(reply.body(), "");
        EXPECT_TRUE(hasCors(reply));
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)");
        EXPECT_TRUE(logged("ADD job: failed, bad request"));
        EXPECT_TRUE(reason.empty() || logged(reason)) << log();
        EXPECT_EQ(store().maxJobId(), 0u);
    }

    /// The answer to questions about URIs.
    static Reply askStates(const std::string& elements) {
        return post("{\"Parameters\":[" + elements + "]}", "/job/updateState");
    }
};

TEST_F(LegacySubmissionTest, AnswerByForm) {
    const Reply none = post(R"({"resource":"a"})");
    EXPECT_EQ(none.code, 202u);
    EXPECT_EQ(none.body(), "1@") << "there is no hub client yet";
    EXPECT_EQ(headerOf(none, "Content-Type"), "text/html");
    EXPECT_TRUE(hasCors(none));
    EXPECT_EQ(post(R"({"resource":"a","reply":"id"})").body(), "1@");
    EXPECT_EQ(post(R"({"resource":"a","reply":"origin"})").body(), "1@");
    EXPECT_EQ(post(R"({"resource":"a","reply":"uri"})").body(), "http://d:1/1");
    EXPECT_EQ(post(R"({"resource":"a","reply":"file"})").body(), "http://d:1/1/index.x3d");
    EXPECT_EQ(post(R"({"commands":["fettle"],"reply":"file"})", "/job/add").body(),
              "http://d:1/2/index.x3d");
}

TEST_F(LegacySubmissionTest, RedirectionLeadsToTheResultOfTheFirstDescription) {
    EXPECT_EQ(post(R"({"resource":"a","uid":"u","format":"html"})").code, 202u);
    const Reply reply = post(R"({"resource":"b","uid":"u","format":"glb","redirect":true})");
    const std::string uri = "http://d:1/1/index.html";
    EXPECT_EQ(reply.code, 302u);
    EXPECT_EQ(headerOf(reply, "Location"), uri);
    EXPECT_EQ(headerOf(reply, "Access-Control-Expose-Headers"), "Location");
    EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html");
    EXPECT_EQ(reply.body(), "<html><header><title>Moved</title></header><body>"
                            "<h1>Moved</h1><p>This page has moved to <a href=\"" +
                                uri + "\">" + uri + "</a>.</p></body></html>");
    EXPECT_TRUE(logged("ADD job: failed, already exists: 1"));
}

TEST_F(LegacySubmissionTest, OtherMethods) {
    for (const char* method : {"PUT", "DELETE", "HEAD", "OPTIONS", "post"}) {
        const Reply reply = ask(makeRequest(method, "/job", R"({"resource":"a"})"));
        EXPECT_EQ(reply.code, 400u) << method;
        EXPECT_TRUE(hasNoCors(reply)) << method;
    }
    EXPECT_EQ(log().find("ADD job"), std::string::npos);
    for (const char* method : {"PUT", "DELETE", "HEAD", "OPTIONS", "get"})
        expectRefused(ask(makeRequest(method, "/job/add", R"({"resource":"a"})")), "");
}

TEST_F(LegacySubmissionTest, BodyThatIsNoJson) {
    expectRefused(post("{\n\nx y"), "JSON POST parsing error: syntax error at line 3 near: x y");
}

TEST_F(LegacySubmissionTest, LogGetsTheRestOfALongLineAndAPieceOfAnEndlessOne) {
    const std::string error = "syntax error at line 1 near: ";
    const std::string longLine(60000, 'y');
    expectRefused(post(longLine), "JSON POST parsing error: " + error + longLine);
    expectRefused(post(std::string(100000, 'y')),
                  "JSON POST parsing error: " + error + std::string(65536 - error.size(), 'y'));
}

TEST_F(LegacySubmissionTest, DescriptionThatIsRefused) {
    for (const char* text : {"{}", "[]", "[{\"resource\":\"a\"}]", "1", "{\"resource\":\"\"}"})
        expectRefused(post(text), "JSON POST parsing error: job desc not valid");
    expectRefused(form({{"ops", "reuse"}}), "JSON POST parsing error: job desc not valid");
}

TEST_F(LegacySubmissionTest, FormBecomesADescription) {
    EXPECT_EQ(formText({{"resource", "a/b"}}), R"({"resource":"a\/b"})");
    EXPECT_EQ(formText({{"reply", "file"},
                        {"redirect", "true"},
                        {"format", "glb"},
                        {"options", "screenshot"},
                        {"ops", "a%2Cb"},
                        {"suffix", "s"},
                        {"resource", "a"}}),
              R"({"format":"glb","ops":"a%2Cb","options":"screenshot","redirect":true,)"
              R"("reply":"file","resource":"a"})");
    for (const char* other : {"", "True", "1", "true "})
        EXPECT_EQ(formText({{"resource", "a"}, {"redirect", other}}), R"({"resource":"a"})");
}

TEST_F(LegacySubmissionTest, ResourceOfAFormIsDecodedOnce) {
    EXPECT_EQ(formText({{"resource", "%41+%2541%zz"}}), R"({"resource":"A+%41%zz"})");
    state().urlDecode = false;
    EXPECT_EQ(formText({{"resource", "%41"}}), R"({"resource":"%41"})");
}

TEST_F(LegacySubmissionTest, BodyIsKeptByteForByte) {
    const std::string text("{ \"resource\" : \"a\" }\r\n\0\xef", 23);
    EXPECT_EQ(post(text).code, 202u);
    EXPECT_EQ(folder.read("cache/1/.meta"), text);
}

TEST_F(LegacySubmissionTest, GetListsAndTheFrameworksWayIsClosed) {
    Request request = makeRequest("GET", "/job");
    request.query.setParam("resource", "a");
    EXPECT_NE(ask(request).body().find("<table"), std::string::npos);
    Reply reply;
    EXPECT_FALSE(provider->addJob(request, picojson::value(), reply));
    EXPECT_EQ(store().maxJobId(), 0u);
}

TEST_F(LegacySubmissionTest, StatesThatAreAnswered) {
    const std::pair<LegacyJobState, std::string> states[] = {
        {States::open, "202"},  {States::inProcess, "202"},      {States::closed, "200"},
        {States::error, ""},    {States::markedForDeletion, ""}, {States::deleted, ""},
        {States::canceled, ""}, {States::terminated, "200"},     {States::invalid, ""}};
    for (const auto& [known, code] : states) {
        const std::string uri = "/" + std::to_string(submit("u" + std::to_string(known)));
        setState(store().maxJobId(), known);
        const Reply reply = askStates("[0,\"" + uri + "\"]");
        EXPECT_EQ(reply.body(), code.empty() ? "[]" : "[[" + code + ",\"" + uri + "\"]]") << known;
        EXPECT_EQ(reply.code, 200u);
        EXPECT_TRUE(hasCors(reply));
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)");
    }
}

TEST_F(LegacySubmissionTest, QuestionsOfOtherForms) {
    submit("u");
    EXPECT_EQ(askStates(R"(1,[0],["0","/1"],[0,1],[0,"1"],[0,"x/+1",2],[0,"/0"],[0,"/-1"],)"
                        R"([0,"/2"],[0,"/2147483647"],[0,"a\"/1"])")
                  .body(),
              R"([[202,"x/+1"],[202,"a"/1"]])");
    for (const char* text : {"", "x", "1x", "2147483648", " 1"})
        EXPECT_THROW(askStates("[0,\"/" + std::string(text) + "\"]"), boost::bad_lexical_cast);
    for (const char* body : {"", "{", "[]", "{}", R"({"Parameters":{}})"}) {
        const Reply reply = post(body, "/job/updateState");
        EXPECT_EQ(reply.code, 400u) << body;
        EXPECT_EQ(reply.body(), "") << body;
        EXPECT_TRUE(hasNoCors(reply)) << body;
    }
}

} // namespace
} // namespace OstrandService

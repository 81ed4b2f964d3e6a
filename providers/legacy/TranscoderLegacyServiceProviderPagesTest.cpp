#include "providers/legacy/TranscoderLegacyServiceProviderTest.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::headerOf;
using Support::makeRequest;

namespace States = LegacyJobStates;

class LegacyPagesTest : public TranscoderLegacyServiceProviderTest {
protected:
    LegacyPagesTest() {
        EXPECT_TRUE(init({"-t", "0", "--delivery_service", "http://d:1"}));
        output.clear();
    }

    /// The answer of the page "/job/*" with this code.
    static std::string job(const std::string& path, std::uint32_t code = 200,
                           const std::string& method = "GET") {
        const Reply reply = ask(makeRequest(method, "/job/" + path));
        EXPECT_EQ(reply.code, code) << path;
        EXPECT_TRUE(hasCors(reply)) << path;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html") << path;
        return reply.body();
    }

    /// The answer of the page "/job/delete" to this value of "id", which is refused.
    static std::string refusal(const std::string& id) {
        Request request = makeRequest("GET", "/job/delete");
        request.query.setParam("id", id.c_str());
        const Reply reply = ask(request);
        EXPECT_EQ(reply.code, 400u) << id;
        EXPECT_TRUE(hasCors(reply)) << id;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)") << id;
        return reply.body();
    }

    static void expectDeleted(const std::string& id) {
        Request request = makeRequest("GET", "/job/delete");
        request.query.setParam("id", id.c_str());
        const Reply reply = ask(request);
        EXPECT_EQ(reply.code, 202u) << id;
        EXPECT_EQ(reply.body(), "ok") << id;
        EXPECT_TRUE(hasCors(reply)) << id;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "text/plain") << id;
    }

    std::size_t count(const std::string& line) const {
        const std::string text = log();
        std::size_t found = 0;
        for (std::size_t at = text.find(line); at != std::string::npos;
             at = text.find(line, at + 1))
            ++found;
        return found;
    }
};

TEST_F(LegacyPagesTest, AnIdOutsideTheListIsNotFound) {
    EXPECT_EQ(job("1", 404), "Job id too high: 1");
    submit("u");
    EXPECT_EQ(job("0", 404), "Job id too low: 0");
    EXPECT_EQ(count("DETAILS job: failed, no valid ID supplied"), 0u);
    EXPECT_EQ(job("2", 404), "Job id too high: 2");
    EXPECT_EQ(job("4294967297", 404), "Job id too high: 4294967297");
    EXPECT_EQ(job("-1", 404), "Job id too high: 18446744073709551615");
    EXPECT_EQ(count("DETAILS job: ID too high"), 4u);
    EXPECT_EQ(count("DETAILS job: ID too low"), 1u);
}

TEST_F(LegacyPagesTest, ATextThatIsNoNumberReadsAsZeroAndIsToldTwice) {
    submit("u");
    std::size_t expected = 0;
    for (const char* text : {"x", "", " 1", "1 ", "1x", "0x1", "1.0", "18446744073709551616",
                             "-18446744073709551616", "list/", "deleted", "%31", "+", "/1"}) {
        EXPECT_EQ(job(text, 404), "Job id too low: 0") << text;
        EXPECT_EQ(count("DETAILS job: failed, no valid ID supplied"), ++expected) << text;
        EXPECT_EQ(count("DETAILS job: ID too low"), expected) << text;
    }
}

TEST_F(LegacyPagesTest, ANumberMayBeWrittenInSeveralWays) {
    submit("u");
    for (const char* text : {"1", "+1", "01", "-18446744073709551615"})
        EXPECT_EQ(job(text).substr(0, 9), "Job: 1/0<") << text;
}

TEST_F(LegacyPagesTest, EveryMethodShowsTheJob) {
    submit("u");
    for (const char* method : {"GET", "POST", "DELETE", "PUT", "HEAD", "OPTIONS"})
        EXPECT_EQ(job("1/status", 200, method), "OPEN") << method;
}

TEST_F(LegacyPagesTest, TellsThePartsOfAJob) {
    submit("u", "\"format\":\"glb\"");
    EXPECT_EQ(job("1/path"), "http://d:1/1");
    EXPECT_EQ(job("+1/path"), "http://d:1/+1");
    EXPECT_EQ(job("1/result"), "http://d:1/1/index.glb");
    EXPECT_EQ(job("01/result"), "http://d:1/01/index.glb");
    for (const char* other : {"1/", "1/status/", "1/Status", "1//status", "1/path/x", "1/results"})
        EXPECT_EQ(job(other), "") << other;
}

TEST_F(LegacyPagesTest, TellsTheNameOfEveryState) {
    const char* names[] = {"OPEN",    "IN PROCESS", "CLOSED",     "ERROR",  "MARKED FOR DELETION",
                           "DELETED", "CANCELED",   "TERMINATED", "INVALID"};
    submit("u");
    for (LegacyJobState state = 0; state <= 8; ++state) {
        setState(1, state);
        EXPECT_EQ(job("1/status"), names[state]);
    }
}

TEST_F(LegacyPagesTest, ShowsAJobThatHasNotRun) {
    submit("first");
    submit("<b>&\\\"u");
    store().setAddedTime(2, 1234.5);
    EXPECT_EQ(job("2"), "Job: 2/1<ul><li>Resource: <b>&\"u</li></ul>"
                        "command timings : <BR> <pre>\nadded : 1.2345\n</pre>\n");
}

TEST_F(LegacyPagesTest, ShowsTheTimesOfEveryRunInSixDigits) {
    submit("u");
    store().setAddedTime(1, 1000);
    store().addTiming(1, {3000, 5000});
    store().addTiming(1, {1e12, 1e12 + 123.4567});
    store().addTiming(1, {1234567.8, 1234568.9});
    EXPECT_EQ(job("1"), "Job: 1/0<ul><li>Resource: u</li></ul>"
                        "command timings : <BR> <pre>\n"
                        "added : 1\n"
                        "[0]\n"
                        "  start processing : 3\n"
                        "  done processing  : 5\n"
                        "  time waiting     : 2\n"
                        "  time processing  : 2\n"
                        "  overall time     : 4\n"
                        "[1]\n"
                        "  start processing : 1e+09\n"
                        "  done processing  : 1e+09\n"
                        "  time waiting     : 1e+09\n"
                        "  time processing  : 0.123457\n"
                        "  overall time     : 1e+09\n"
                        "[2]\n"
                        "  start processing : 1234.57\n"
                        "  done processing  : 1234.57\n"
                        "  time waiting     : 1233.57\n"
                        "  time processing  : 0.0011\n"
                        "  overall time     : 1233.57\n"
                        "</pre>\n");
}

TEST_F(LegacyPagesTest, ShowsTheConsoleOfABatchAndOnlyTheNameOfTheTools) {
    submit("u");
    const std::string text = std::string("a\0<b>", 5) + std::string(9000, 'x') + "\n";
    folder.write("cache/1/console.txt", text);
    const std::string without = job("1");
    EXPECT_EQ(without.substr(without.find("</pre>\n")),
              "</pre>\nConsole command batch : <BR> <pre>\n" + text + "</pre>\n");
    folder.write("cache/1/console_fettle.txt", "words of the tool");
    const std::string with = job("+1");
    EXPECT_EQ(with.substr(with.find("</pre>\n")), "</pre>\nConsole fettle : <BR> ");
}

TEST_F(LegacyPagesTest, AConsoleThatIsAFolderIsEmpty) {
    submit("u");
    folder.makeFolder("cache/1/console.txt");
    const std::string text = job("1");
    EXPECT_EQ(text.substr(text.find("</pre>\n")),
              "</pre>\nConsole command batch : <BR> <pre>\n</pre>\n");
}

TEST_F(LegacyPagesTest, DeletesByQueryOfAGet) {
    submit("done");
    setState(1, States::closed);
    submit("failed");
    setState(2, States::error);
    submit("waiting");
    expectDeleted("1");
    expectDeleted("+2");
    expectDeleted("03");
    EXPECT_EQ(store().getJobState("done"), States::markedForDeletion);
    EXPECT_EQ(store().getJobState("failed"), States::markedForDeletion);
    EXPECT_EQ(store().getJobState("waiting"), States::canceled);
    for (const char* line :
         {"DELETE job: success, id: 1", "DELETE job: success, id: 2", "DELETE job: success, id: 3"})
        EXPECT_TRUE(logged(line)) << line;
}

TEST_F(LegacyPagesTest, DeletesOnlyWhatWaitsOrHasEnded) {
    submit("u");
    for (const LegacyJobState state : {States::inProcess, States::markedForDeletion,
                                       States::deleted, States::canceled, States::terminated}) {
        setState(1, state);
        EXPECT_EQ(refusal("1"), "Not possible to delete that job (yet?).") << state;
        EXPECT_EQ(store().getJobState("u"), state);
    }
    for (const char* id : {"0", "2", "-1", "4294967295", "-4294967295"}) {
        setState(1, States::inProcess);
        EXPECT_EQ(refusal(id), "Not possible to delete that job (yet?).") << id;
    }
    EXPECT_EQ(count("DELETE job: failed, not possible to delete that job (yet?)"), 10u);
}

TEST_F(LegacyPagesTest, RefusesIdsThatAreNone) {
    submit("u");
    for (const char* id : {"", "x", " 1", "1 ", "%31", "4294967296", "-4294967296", "1.0", "<b>"}) {
        EXPECT_EQ(refusal(id), std::string("Invalid ID: ") + id);
        EXPECT_TRUE(logged(std::string("DELETE job: failed, invalid id: ") + id));
    }
    const Reply reply = get("/job/delete");
    EXPECT_EQ(reply.code, 400u);
    EXPECT_EQ(reply.body(), "");
    EXPECT_TRUE(hasCors(reply));
    EXPECT_TRUE(logged("DELETE job: failed, no ID supplied"));
    EXPECT_EQ(store().getJobState("u"), States::open);
}

TEST_F(LegacyPagesTest, OtherMethodsAreToldOkAndDeleteNothing) {
    submit("u");
    for (const char* method : {"POST", "PUT", "DELETE", "HEAD", "get"}) {
        for (const char* id : {"1", "", "x", "9"}) {
            Request request = makeRequest(method, "/job/delete");
            request.query.setParam("id", id);
            const Reply reply = ask(request);
            EXPECT_EQ(reply.code, 202u) << method << id;
            EXPECT_EQ(reply.body(), "ok") << method << id;
            EXPECT_EQ(headerOf(reply, "Content-Type"), "text/plain") << method;
            EXPECT_TRUE(hasCors(reply)) << method;
        }
    }
    EXPECT_EQ(store().getJobState("u"), States::open);
    EXPECT_EQ(count("DELETE job"), 0u);
}

} // namespace
} // namespace OstrandService

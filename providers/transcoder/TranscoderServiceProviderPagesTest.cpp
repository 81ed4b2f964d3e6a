#include "providers/transcoder/TranscoderServiceProviderTest.h"

#include "platform/kestrel/SysInfo.h"

#include <gtest/gtest.h>
#include <sstream>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::hasNoCors;
using Support::headerOf;
using Support::makeRequest;

class TranscoderPagesTest : public TranscoderServiceProviderTest {
protected:
    static Request get(const std::string& uri, const std::string& accept = "") {
        auto request = makeRequest("GET", uri);
        if (!accept.empty())
            request.header().setParam("Accept", accept.c_str());
        return request;
    }

    std::string listJson() {
        Reply reply;
        EXPECT_TRUE(provider->listJobs(get("/job", "application/json"), reply));
        EXPECT_EQ(reply.code, 200u);
        EXPECT_EQ(headerOf(reply, "Content-Type"), "application/json");
        EXPECT_TRUE(hasNoCors(reply));
        return reply.body();
    }

    std::string listHtml() {
        Reply reply;
        EXPECT_TRUE(provider->listJobs(get("/job"), reply));
        EXPECT_EQ(reply.code, 200u);
        EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html");
        EXPECT_TRUE(hasNoCors(reply));
        return reply.body();
    }

    /// The HTML list without what every list has around its rows.
    std::string rows() {
        const std::string list = listHtml();
        const std::string lastHeading = "Statistics</font></td></tr>";
        const std::string close = "</table></body></html>";
        const auto begin = list.find(lastHeading) + lastHeading.size();
        EXPECT_EQ(list.substr(list.size() - close.size()), close);
        return list.substr(begin, list.size() - close.size() - begin);
    }

    static std::string row(const std::string& id, const std::string& uid, const std::string& shown,
                           const std::string& result, const std::string& state,
                           const std::string& link = "") {
        return "<tr><td><a href='../job/P/" + id + "'>" + id + "</a></td><td title=\"" + uid +
               "\">" + shown + "</td><td title=\"" + result + "\">" + result + "</td><td>" + state +
               "</td><td>0 sec</td><td>" + link + "</td></tr>";
    }

    Reply page(const std::string& uri) {
        Reply reply;
        EXPECT_TRUE(provider->getJob(get(uri), reply));
        EXPECT_TRUE(hasNoCors(reply));
        if (reply.code != 200u) {
            EXPECT_EQ(reply.code, 400u) << uri;
            EXPECT_EQ(reply.body(), "") << uri;
        }
        return reply;
    }

    static std::string head(const std::string& number, const std::string& uid) {
        return "Job: " + number + "<ul><li>Resource: " + uid +
               "</li></ul>command timings : <BR> <pre>\nadded : \n<pre>\n"
               "  start processing : \n  done processing  : \n  time waiting     : \n"
               "  time processing  : \n  overall time     : \n</pre>\n";
    }

    void addJob(const std::string& uid) {
        post("{\"uid\":\"" + uid + "\",\"commands\":[\"true\"]}");
    }
};

TEST_F(TranscoderPagesTest, FrontPageInHtml) {
    ASSERT_TRUE(init());
    HostOptions::host().version = "1.0.0";
    const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
    const std::string expected =
        "<html><header></header><body>"
        "<h1 align='center'>Ostrand Works - Transcoder</h1>"
        "<p align='center'>An Ostrandhub Service</p>"
        "<h2>Status</h2><ul><li>Version: 1.0.0 (<a href=\"./changelog\">Changelog</a>)</li>"
        "<h2>Options</h2><ul><li><a href=\"./job\">Job List</a></li></ul>"
        "<h2>System</h2><pre>Host Name   : " +
        system.hostName() + "\nMachine Name: " + system.machineType +
        "\nCPU Count   : " + std::to_string(system.numCpus) + "\nOS          : " + system.osName +
        "\nDelivery    : http://name:4712\n</pre></body></html>";
    for (const char* accept : {"", "*/*", "application/json, text/html", "text/html"}) {
        Reply reply;
        EXPECT_TRUE(provider->handleFrontPage(get("/", accept), reply));
        EXPECT_EQ(reply.code, 200u);
        EXPECT_EQ(reply.body(), expected) << accept;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html");
        EXPECT_TRUE(hasCors(reply));
    }
}

TEST_F(TranscoderPagesTest, FrontPageInJson) {
    ASSERT_TRUE(init({"-t", "7"}));
    auto request = get("/", "application/json");
    request.header().setParam("Origin", "http://me");
    Reply reply;
    EXPECT_TRUE(provider->handleFrontPage(request, reply));
    std::ostringstream info;
    provider->writeProviderInfo(info, "TranscoderService");
    EXPECT_EQ(reply.body(), info.str() + ",\n"
                                         "    \"Delivery\"    : \"http://name:4712\",\n"
                                         "    \"NumThreads\"    : 7\n"
                                         "  }\n");
    picojson::value value;
    EXPECT_EQ(picojson::parse(value, reply.body()), "");
    EXPECT_EQ(reply.code, 200u);
    EXPECT_EQ(headerOf(reply, "Content-Type"), "application/json");
    EXPECT_TRUE(hasCors(reply, "http://me"));
}

TEST_F(TranscoderPagesTest, EmptyLists) {
    ASSERT_TRUE(init());
    EXPECT_EQ(listJson(), "{\n \"numJobs\" : 0,\n \"numJobsFinished\" : 0,\n"
                          " \"numJobsFailed\" : 0,\n \"jobs\": {\n }\n}");
    const std::string open = "<td bgcolor='#000000' align='center'><font color='#FFFFFF'>";
    const std::string close = "</font></td>";
    EXPECT_EQ(listHtml(),
              "<html><header></header><body><h1>Jobs</h1>Number of Jobs: 0<br>"
              "Number of finished Jobs: 0<br>Number of failed Jobs: 0<br><br>"
              "<p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
              "<table border='0'><tr>" +
                  open + "ID" + close + open + "Resource" + close + open + "CmdLine" + close +
                  open + "Status" + close + open + "Time Added" + close + open + "Statistics" +
                  close + "</tr></table></body></html>");
}

TEST_F(TranscoderPagesTest, ListsInJson) {
    ASSERT_TRUE(init());
    provider->numJobs = 4294967295u; // wraps with the two jobs to come
    provider->numJobsFinished = 12345;
    provider->numJobsFailed = 2;
    addJob("a b<\\\"/\\u00e4");
    addJob("second");
    job(2)->state = JobState::CLOSED;
    EXPECT_EQ(listJson(), "{\n \"numJobs\" : 1,\n \"numJobsFinished\" : 12345,\n"
                          " \"numJobsFailed\" : 2,\n \"jobs\": {\n"
                          "  \"job1\" : {\n"
                          "   \"uri\" : \"http://name:4712/P/1\",\n"
                          "   \"resource\" : \"a%20b%3C%22%2F%C3%A4\",\n"
                          "   \"status\" : \"OPEN\"\n  },\n"
                          "  \"job2\" : {\n"
                          "   \"uri\" : \"http://name:4712/P/2\",\n"
                          "   \"resource\" : \"second\",\n"
                          "   \"status\" : \"CLOSED\"\n  }\n }\n}");
}

TEST_F(TranscoderPagesTest, ListsInHtmlUnescaped) {
    ASSERT_TRUE(init());
    addJob("<b>\\\"&");
    EXPECT_EQ(rows(), row("1", "<b>\"&", "<b>\"&", "Not Run Yet", "OPEN"));
    EXPECT_EQ(listHtml().find("<html><header></header><body><h1>Jobs</h1>Number of Jobs: 1<br>"
                              "Number of finished Jobs: 0<br>"),
              0u);
    job(1)->run();
    EXPECT_EQ(rows(), row("1", "<b>\"&", "<b>\"&", "See Resource", "CLOSED"));
}

TEST_F(TranscoderPagesTest, ShortensLongUids) {
    ASSERT_TRUE(init());
    const std::string sixty = std::string(30, 'a') + std::string(30, 'b');
    const std::string more = std::string(30, 'a') + "x" + std::string(30, 'b');
    addJob(sixty);
    addJob(more);
    EXPECT_EQ(rows(), row("1", sixty, sixty, "Not Run Yet", "OPEN") +
                          row("2", more, std::string(30, 'a') + "..." + std::string(30, 'b'),
                              "Not Run Yet", "OPEN"));
}

TEST_F(TranscoderPagesTest, ListsHideInvalidJobsAndHoles) {
    folder.write("cache/P/3/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    folder.write("cache/P/3/.status", "{ \"status\" : 9 }\n");
    folder.write("cache/P/5/.meta", "{\"uid\":\"v\",\"commands\":[]}");
    folder.write("cache/P/5/.status", "{ \"status\" : 8 }\n");
    ASSERT_TRUE(init());
    EXPECT_EQ(rows(), row("5", "v", "v", "", "DELETED"));
    EXPECT_EQ(listJson().find("job3"), std::string::npos);
    EXPECT_EQ(page("/job/3").body(), head("3/5", "u"));
}

// The job of folder "0" stands in the lists, and under its new id twice when it was queued again.
TEST_F(TranscoderPagesTest, ListsTheJobOfPlaceZero) {
    folder.write("cache/P/0/.meta", "{\"uid\":\"u\",\"commands\":[]}");
    folder.write("cache/P/0/.status", "{ \"status\" : 3 }\n");
    ASSERT_TRUE(init());
    EXPECT_EQ(rows(), row("0", "u", "u", "", "CLOSED"));
    addJob("u");
    EXPECT_EQ(rows(), row("1", "u", "u", "Not Run Yet", "OPEN") +
                          row("1", "u", "u", "Not Run Yet", "OPEN"));
    EXPECT_EQ(page("/job/0").code, 400u);
}

TEST_F(TranscoderPagesTest, LinksStatisticsOfAClosedJobWithoutTheProvidersId) {
    ASSERT_TRUE(init());
    addJob("u");
    const std::string link = "<a href=\"http://name:4712/1/statistics.html\">Statistics</a>";
    job(1)->state = JobState::CLOSED;
    EXPECT_EQ(rows(), row("1", "u", "u", "Not Run Yet", "CLOSED"));
    folder.write("cache/P/1/statistics.html", "");
    EXPECT_EQ(rows(), row("1", "u", "u", "Not Run Yet", "CLOSED", link));
    for (const JobState state : {JobState::OPEN, JobState::ERROR, JobState::TERMINATED}) {
        job(1)->state = state;
        EXPECT_EQ(rows(), row("1", "u", "u", "Not Run Yet", jobStateName(state)));
    }
}

TEST_F(TranscoderPagesTest, ShowsAJob) {
    ASSERT_TRUE(init());
    addJob("<u>");
    addJob("v");
    for (const char* uri : {"/job/1", "/job/P/1", "/job/a/b/1", "1/1", "/1"}) {
        const Reply reply = page(uri);
        EXPECT_EQ(reply.code, 200u) << uri;
        EXPECT_EQ(reply.body(), head("1/2", "<u>")) << uri;
        EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html") << uri;
    }
}

TEST_F(TranscoderPagesTest, RefusesWhatIsNoJob) {
    ASSERT_TRUE(init());
    addJob("u");
    for (const char* uri :
         {"", "1", "/job/", "/job/abc", "/job/0", "/job/-0", "/job/2", "/job/1x", "/job/ 1",
          "/job/1 ", "/job/1.0", "/job/0x1", "/job/-1", "/job/18446744073709551616",
          "/job/18446744073709551615", "/job/--1", "/job/4294967297"})
        EXPECT_EQ(page(uri).code, 400u) << uri;
}

TEST_F(TranscoderPagesTest, TakesSignsAndWrapsThem) {
    ASSERT_TRUE(init());
    addJob("u");
    folder.write("cache/P/1/console.txt", "text");
    const std::string plain = head("1/1", "u");
    EXPECT_EQ(page("/job/1").body(), plain + "Console command batch : <BR> <pre>\ntext</pre>\n");
    // The number finds the job, the text of the request its console.
    for (const char* uri : {"/job/+1", "/job/01", "/job/-18446744073709551615"})
        EXPECT_EQ(page(uri).body(), plain) << uri;
    folder.write("cache/P/01/console.txt", "other");
    EXPECT_EQ(page("/job/01").body(), plain + "Console command batch : <BR> <pre>\nother</pre>\n");
}

TEST_F(TranscoderPagesTest, ShowsTheToolsConsoleAsAHeading) {
    ASSERT_TRUE(init());
    addJob("u");
    folder.write("cache/P/1/console.txt", "text");
    folder.write("cache/P/1/console_fettle.txt", "other text");
    EXPECT_EQ(page("/job/1").body(), head("1/1", "u") + "Console fettle : <BR> ");
}

} // namespace
} // namespace OstrandService

#include "providers/legacy/TranscoderLegacyServiceProviderTest.h"

#include "framework/PagePolicy.h"
#include "platform/kestrel/SysInfo.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::makeRequest;

namespace States = LegacyJobStates;

class LegacyListsTest : public TranscoderLegacyServiceProviderTest {
protected:
    LegacyListsTest() { EXPECT_TRUE(init({"-t", "0", "--delivery_service", "http://d:1"})); }

    /// The line of the job list for a job.
    static std::string row(const std::string& id) {
        const std::string text = page("/job/list", "text/html");
        const std::size_t begin = text.find("<tr><td><a href='../job/" + id + "'>");
        return begin == std::string::npos
                   ? "(none)"
                   : text.substr(begin, text.find("</tr>", begin) + 5 - begin);
    }
};

TEST_F(LegacyListsTest, ListsJobsAsATable) {
    submit("u<b>");
    store().setAddedTime(1, 123456.7);
    submit("v");
    store().setAddedTime(2, 0);
    setState(2, States::error);
    store().setCommandLine(store().getJobRecord(2), "fettle -i \"v\" ");
    const std::string cell = "<td bgcolor='#000000' align='center'><font color='#FFFFFF'>";
    const std::string expected =
        "<html><header></header><body><h1>Jobs</h1>"
        "Number of Jobs: 2<br>Number of finished Jobs: 1<br><br>"
        "<p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
        "<table border='0'><tr>" +
        cell + "ID</font></td>" + cell + "Resource</font></td>" + cell + "CmdLine</font></td>" +
        cell + "Status</font></td>" + cell + "Time Added</font></td>" + cell +
        "Statistics</font></td></tr>"
        "<tr><td><a href='../job/1'>1</a></td><td title=\"u<b>\">u<b></td>"
        "<td title=\"Not Run Yet\">Not Run Yet</td><td>OPEN</td><td>123.457 sec</td><td></td></tr>"
        "<tr><td><a href='../job/2'>2</a></td><td title=\"v\">v</td>"
        "<td title=\"fettle -i \"v\" \">fettle -i \"v\" </td><td>ERROR</td><td>0 sec</td>"
        "<td></td></tr></table></body></html>";
    EXPECT_EQ(page("/job/list", "text/html"), expected);
    EXPECT_EQ(page("/job", "text/html"), expected);
    Request request = makeRequest("GET", "/job");
    request.header().setParam("Accept", "application/json");
    EXPECT_EQ(ask(request).body(), expected) << "no choice by Accept";
    Reply reply;
    EXPECT_TRUE(provider->listJobsHtml(request, reply));
    EXPECT_EQ(reply.body(), expected);
}

TEST_F(LegacyListsTest, ShortensUidsOfMoreThanSixtyBytes) {
    const std::string sixty(60, 'a');
    const std::string longer = std::string(30, 'a') + "b" + std::string(30, 'c');
    submit(sixty);
    submit(longer);
    EXPECT_NE(row("1").find("<td title=\"" + sixty + "\">" + sixty + "</td>"), std::string::npos);
    EXPECT_NE(row("2").find("<td title=\"" + longer + "\">" + std::string(30, 'a') + "..." +
                            std::string(30, 'c') + "</td>"),
              std::string::npos);
}

TEST_F(LegacyListsTest, LinksStatisticsWhereAFolderBearsTheUid) {
    const std::string link = "<td><a href=\"http://d:1/1/statistics.html\">Statistics</a></td>";
    submit("u");
    setState(1, States::closed);
    folder.write("cache/1/statistics.html", "");
    EXPECT_EQ(row("1").find("Statistics"), std::string::npos) << "the job's folder has the id";
    folder.write("cache/u/statistics.html", "");
    EXPECT_NE(row("1").find(link), std::string::npos);
    state().setDeliveryService("");
    EXPECT_EQ(row("1").find("Statistics"), std::string::npos);
    state().setDeliveryService("http://d:1");
    for (LegacyJobState other : {0, 1, 3, 4, 5, 6, 7}) {
        setState(1, other);
        EXPECT_EQ(row("1").find("Statistics</a>"), std::string::npos) << other;
    }
}

TEST_F(LegacyListsTest, AUidThatIsNoPathDisturbsNoList) {
    submit(std::string(300, 'u'));
    setState(1, States::closed);
    submit(std::string(5000, '/'));
    setState(2, States::closed);
    EXPECT_NE(row("2"), "(none)");
}

TEST_F(LegacyListsTest, GapsHaveNoRowButAnEntryInTheOtherLists) {
    folder.write("cache/2/.meta", "{\"resource\":\"r\",\"uid\":\"two & more\"}");
    folder.write("cache/2/.status", "{ \"status\" : 2}\n");
    folder.write("cache/4/.meta", "{\"resource\":\"r\",\"uid\":\"four\"}");
    destroy();
    HostOptions::host().webServer.clearPages();
    provider = new TranscoderLegacyServiceProvider;
    ASSERT_TRUE(init());
    EXPECT_EQ(output, "Loading old jobs: 2\nNumber of worker threads: 0\n");
    EXPECT_EQ(row("1"), "(none)");
    EXPECT_EQ(row("3"), "(none)");
    EXPECT_NE(row("2").find("<td>CLOSED</td><td>0 sec</td>"), std::string::npos);
    EXPECT_NE(row("4").find("<td>ERROR</td>"), std::string::npos);
    const auto entry = [](const char* id, const char* uid, const char* name, const char* end) {
        return std::string("  \"job") + id + "\" : {\n   \"resource\" : \"" + uid +
               "\",\n   \"status\" : \"" + name + "\"\n  }" + end + "\n";
    };
    EXPECT_EQ(page("/job/list/json", "application/json"),
              "{\n\"numJobs\" : 2,\n\"numJobsFinished\" : 2,\n\"jobs\": {\n" +
                  entry("1", "", "INVALID", ",") + entry("2", "two%20%26%20more", "CLOSED", ",") +
                  entry("3", "", "INVALID", ",") + entry("4", "four", "ERROR", "") + "}\n}");
    EXPECT_EQ(page("/job/list/cached", "text/json"), "[\"\",\"two & more\",\"\",\"four\"]\n");
    EXPECT_EQ(page("/job/1/status", "text/html"), "INVALID");
    EXPECT_EQ(page("/job/1", "text/html"), "Job: 1/3<ul><li>Resource: </li></ul>"
                                           "command timings : <BR> <pre>\nadded : 0\n</pre>\n");
    EXPECT_EQ(page("/job/1/result", "text/html"), state().getDeliveryService() + "/1/index.x3d");
}

TEST_F(LegacyListsTest, AnEmptyStoreHasEmptyLists) {
    EXPECT_EQ(page("/job/list/json", "application/json"),
              "{\n\"numJobs\" : 0,\n\"numJobsFinished\" : 0,\n\"jobs\": {\n}\n}");
    EXPECT_EQ(page("/job/list/cached", "text/json"), "[]\n");
    EXPECT_EQ(page("/job/list/open", "text/plain"), "0");
    EXPECT_EQ(row("1"), "(none)");
}

TEST_F(LegacyListsTest, ListsUidsUnescaped) {
    submit("a\\\"b\\\\");
    submit("c");
    EXPECT_EQ(page("/job/list/cached", "text/json"), "[\"a\"b\\\",\"c\"]\n");
    EXPECT_EQ(page("/job/list/open", "text/plain"), "2");
}

TEST_F(LegacyListsTest, TotalsAreThreeDifferentNumbers) {
    submit("u");
    setState(1, States::inProcess);
    setState(1, States::error);
    submit("u");
    setState(1, States::inProcess);
    setState(1, States::closed);
    submit("v");
    EXPECT_NE(
        page("/job/list", "text/html").find("Number of Jobs: 3<br>Number of finished Jobs: 2<br>"),
        std::string::npos);
    EXPECT_NE(page("/statistics", "text/html")
                  .find("Number of Jobs: 2<ul><li>finished: 2</li><li>open: 1</li>"
                        "<li>errors: 1</li></ul>"),
              std::string::npos);
    EXPECT_EQ(page("/job/list/open", "text/plain"), "1");
}

TEST_F(LegacyListsTest, StatisticsPage) {
    submit("u");
    submit("v");
    submit("w");
    setState(2, States::closed);
    setState(3, States::error);
    EXPECT_EQ(page("/statistics", "text/html"),
              "<html><header>"
              "<script src=\"https://cdn.jsdelivr.net/npm/chart.js@1.1.1/Chart.min.js\"></script>"
              "<title>Transcoder - Statistics</title><style>canvas {}</style>"
              "<meta viewport='initial-scale = 1, user-scalable = no'></meta></header><body>"
              "<h1>Statistics</h1><h2>Job Status</h2>Number of Jobs: 3<ul><li>finished: 2</li>"
              "<li>open: 1</li><li>errors: 1</li></ul><div id=\"container\"></div>\n<script>\n"
              "var data_jobstatus = [\n"
              "{value : 2,\ncolor : '#9ed800'},\n"
              "{value : 1,\ncolor : '#69D2E7'},\n"
              "{value : 1,\ncolor : '#F38630'}\n"
              "]\n"
              "var myLine0 = new Chart(document.getElementById"
              "('canvas_jobstatus').getContext('2d')).Pie(data_jobstatus);\n"
              "</script></body></html>");
}

TEST_F(LegacyListsTest, StatisticsPageAllowsItsOwnScript) {
    submit("u");
    const std::string script = "\nvar data_jobstatus = [\n"
                               "{value : 0,\ncolor : '#9ed800'},\n"
                               "{value : 1,\ncolor : '#69D2E7'},\n"
                               "{value : 0,\ncolor : '#F38630'}\n"
                               "]\n"
                               "var myLine0 = new Chart(document.getElementById"
                               "('canvas_jobstatus').getContext('2d')).Pie(data_jobstatus);\n";
    const Reply reply = get("/statistics");
    EXPECT_NE(reply.body().find("<script>" + script + "</script>"), std::string::npos);
    EXPECT_EQ(Support::headerOf(reply, "Content-Security-Policy"),
              PagePolicy::withScript("https://cdn.jsdelivr.net/npm/chart.js@1.1.1/Chart.min.js",
                                     script, "canvas {}"));
}

TEST_F(LegacyListsTest, FrontPage) {
    const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
    EXPECT_EQ(page("/", "text/html"),
              "<html><header></header><body><h1 align='center'>Ostrand Works - Transcoder</h1>"
              "<p align='center'>An Ostrandhub Service</p><h2>Status</h2><ul><li>Version: 1.0.0 "
              "(<a href=\"./changelog\">Changelog</a>)</li><li>Worker threads: 0</li></ul>"
              "<h2>Options</h2><ul><li><a href=\"./job/list\">Job List</a></li>"
              "<li><a href=\"./statistics\">Statistics</a></li></ul><h2>System</h2><pre>"
              "Host Name   : " +
                  system.hostName() + "\nMachine Name: " + system.machineType + "\nCPU Count   : " +
                  std::to_string(system.numCpus) + "\nOS          : " + system.osName +
                  "\nDelivery    : http://d:1\n</pre></body></html>");
    EXPECT_TRUE(logged("frontpage accessed"));
}

TEST_F(LegacyListsTest, VersionAndSettings) {
    HostOptions::host().version = "2.3.4";
    EXPECT_EQ(page("/version", "text/plain"), "2.3.4");
    EXPECT_EQ(page("/settings", "text/html"), "");
}

TEST_F(LegacyListsTest, NamesTheOriginOfTheRequest) {
    submit("u");
    for (const char* path : {"/", "/job", "/job/list", "/job/list/json", "/job/list/cached",
                             "/job/list/open", "/job/1", "/job/9", "/job/delete", "/settings",
                             "/statistics", "/version", "/changelog", "/chart.js", "/reconfig"}) {
        Request request = makeRequest("GET", path);
        request.header().setParam("Origin", "http://me");
        EXPECT_TRUE(hasCors(ask(request), "http://me")) << path;
    }
}

} // namespace
} // namespace OstrandService

#include "providers/render/DappleRenderServiceProviderTest.h"

#include "platform/kestrel/SysInfo.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::hasNoCors;
using Support::headerOf;
using Support::makeRequest;

class DappleRenderPagesTest : public DappleRenderServiceProviderTest {
protected:
    static Request request(const std::string& accept = "") {
        auto made = makeRequest("GET", "/job");
        if (!accept.empty())
            made.header().setParam("Accept", accept.c_str());
        return made;
    }

    Reply list(const std::string& accept = "") {
        Support::OutputCapture capture;
        Reply reply;
        reply.setCode(500);
        EXPECT_TRUE(provider->listJobs(request(accept), reply));
        EXPECT_EQ(reply.code, 200u);
        EXPECT_TRUE(hasNoCors(reply));
        written = capture.errors();
        return reply;
    }

    static std::string page(const std::string& counts, const std::string& rows) {
        const std::string open = "<td bgcolor='#000000' align='center'><font color='#FFFFFF'>";
        const std::string close = "</font></td>";
        return "<html><header></header><body><h1>Jobs</h1>" + counts +
               "<br><p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
               "<table border='0'><tr>" +
               open + "ID" + close + open + "Resource" + close + open + "CmdLine" + close + open +
               "Status" + close + open + "Time Added" + close + open + "Statistics" + close +
               "</tr>" + rows + "</table></body></html>";
    }

    static std::string counts(const std::string& pending, const std::string& finished,
                              const std::string& failed) {
        return "Number of Jobs: " + pending + "<br>Number of finished Jobs: " + finished +
               "<br>Number of failed Jobs: " + failed + "<br>";
    }

    static std::string row(const std::string& id, const std::string& result,
                           const std::string& state) {
        return "<tr><td><a href='../job/" + id + "'>" + id +
               "</a></td><td title=\"not set\">not set</td><td title=\"" + result + "\">" + result +
               "</td><td>" + state + "</td><td>0 sec</td><td></td></tr>";
    }
};

TEST_F(DappleRenderPagesTest, FrontPage) {
    ASSERT_TRUE(initWith(""));
    HostOptions::host().version = "7.8.9";
    const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
    auto asked = makeRequest("GET", "/");
    asked.header().setParam("Accept", "application/json");
    asked.header().setParam("Origin", "http://me");
    Reply reply;
    reply.setCode(500);
    EXPECT_TRUE(provider->handleFrontPage(asked, reply));
    EXPECT_EQ(reply.code, 200u);
    EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html");
    EXPECT_TRUE(hasCors(reply, "http://me"));
    EXPECT_EQ(reply.body(),
              "<html><header></header><body>"
              "<h1 align='center'>Ostrand Works - DappleRenderer</h1>"
              "<p align='center'>An Ostrandhub Service</p>"
              "<h2>Status</h2><ul><li>Version: 7.8.9 (<a href=\"./changelog\">Changelog</a>)</li>"
              "<h2>Options</h2><ul><li><a href=\"./job\">Job List</a></li></ul>"
              "<h2>System</h2><pre>Host Name   : " +
                  system.hostName() + "\nMachine Name: " + system.machineType +
                  "\nCPU Count   : " + std::to_string(system.numCpus) +
                  "\nOS          : " + system.osName + "\n</body></html>");
}

TEST_F(DappleRenderPagesTest, ListWithoutJobs) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\",\":1\"]}"));
    const Reply reply = list();
    EXPECT_EQ(headerOf(reply, "Content-Type"), "text/html");
    EXPECT_EQ(reply.body(), page(counts("0", "0", "0"), ""));
    EXPECT_EQ(written, "dapple : job list html request : \nGET /job\n");
}

TEST_F(DappleRenderPagesTest, ListInEveryState) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\",\":1\",\":2\"],\"exe\":\"false\"}"));
    provider->numJobs = 4294967294u;
    provider->numJobsFinished = 12345;
    provider->numJobsFailed = 6;
    submit("{}");
    submit("{}");
    submit("{}");
    EXPECT_EQ(list().body(), page(counts("1", "12345", "6"), row("0", "Not yet run", "OPEN") +
                                                                 row("1", "Not yet run", "OPEN") +
                                                                 row("2", "Not yet run", "OPEN")));
    job(0)->run();
    job(1)->state = JobState::INVALID;
    job(2)->state = JobState::MARKED_FOR_DELETION;
    EXPECT_EQ(list("text/html").body(),
              page(counts("1", "12345", "6"), row("0", "See Resource", "ERROR") +
                                                  row("2", "Not yet run", "MARKED FOR DELETION")));
}

// Nothing of the description is on the page, and so nothing of it needs escaping.
TEST_F(DappleRenderPagesTest, ListTellsNothingOfTheDescription) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\"],\"class\":\"<b>\",\"outputs\":[\"&\"]}"));
    submit("{\"class\":\"<b>\",\"output\":\"&\"}");
    EXPECT_EQ(list().body(), page(counts("1", "0", "0"), row("0", "Not yet run", "OPEN")));
}

TEST_F(DappleRenderPagesTest, ListInJsonIsACodeAlone) {
    ASSERT_TRUE(initWith("{\"displays\":[\":0\"]}"));
    for (int jobs = 0; jobs < 2; ++jobs) {
        const Reply reply = list("application/json");
        EXPECT_EQ(reply.body(), "");
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)");
        EXPECT_EQ(written,
                  "dapple : job list json request : \nGET /job\nAccept: application/json\n");
        submit("{}");
    }
}

} // namespace
} // namespace OstrandService

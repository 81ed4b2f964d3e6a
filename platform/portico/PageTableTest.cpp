#include "platform/portico/PageTable.h"

#include "platform/portico/ProtocolHTTP.h"
#include "platform/portico/WebPageStatic.h"

#include <gtest/gtest.h>
#include <string>

namespace Portico {
namespace {

WebPageStatic named(const std::string& name) {
    return WebPageStatic(name.data(), name.size(), "text/plain", 200);
}

/// The name of the page for a path; "(none)" where there is none.
std::string pageFor(const PageTable& table, const std::string& path) {
    WebPage* const page = table.find(path);
    if (!page)
        return "(none)";
    ProtocolHTTP::Reply reply;
    page->create(nullptr, ProtocolHTTP::Request(), reply);
    return reply.body();
}

TEST(PageTable, findsExactPathsOnly) {
    PageTable table;
    table.add("/job", named("job"));
    EXPECT_EQ(pageFor(table, "/job"), "job");
    EXPECT_EQ(pageFor(table, "/job/"), "(none)");
    EXPECT_EQ(pageFor(table, "/jo"), "(none)");
    EXPECT_EQ(pageFor(table, "/jobs"), "(none)");
    EXPECT_EQ(pageFor(table, "/Job"), "(none)");
    EXPECT_EQ(pageFor(table, ""), "(none)");
}

TEST(PageTable, takesEveryPathUnderAPattern) {
    PageTable table;
    table.add("/job/*", named("under"));
    EXPECT_EQ(pageFor(table, "/job/3"), "under");
    EXPECT_EQ(pageFor(table, "/job/3/4"), "under");
    EXPECT_EQ(pageFor(table, "/job/"), "under");
    EXPECT_EQ(pageFor(table, "/job"), "(none)");
    EXPECT_EQ(pageFor(table, "/jobs"), "(none)");
}

TEST(PageTable, matchesTheRootToo) {
    PageTable table;
    table.add("/*", named("all"));
    table.add("/favicon.ico", named("icon"));
    EXPECT_EQ(pageFor(table, "/"), "all");
    EXPECT_EQ(pageFor(table, "/a/b"), "all");
    EXPECT_EQ(pageFor(table, "/favicon.ico"), "icon");
}

TEST(PageTable, prefersExactPathsAndLongPatternsWhateverTheOrder) {
    for (const bool shortFirst : {true, false}) {
        PageTable table;
        if (shortFirst)
            table.add("/job/*", named("short"));
        table.add("/job/a/*", named("long"));
        table.add("/job/add", named("exact"));
        table.add("/job/b*", named("letter"));
        if (!shortFirst)
            table.add("/job/*", named("short"));
        EXPECT_EQ(pageFor(table, "/job/add"), "exact");
        EXPECT_EQ(pageFor(table, "/job/adda"), "short");
        EXPECT_EQ(pageFor(table, "/job/a/b"), "long");
        EXPECT_EQ(pageFor(table, "/job/a"), "short");
        EXPECT_EQ(pageFor(table, "/job/z"), "short");
        EXPECT_EQ(pageFor(table, "/job/bz"), "letter");
    }
}

TEST(PageTable, replacesAPageUnderTheSamePath) {
    PageTable table;
    table.add("/a", named("old"));
    table.add("/a", named("new"));
    table.add("/b*", named("old"));
    table.add("/b*", named("new"));
    EXPECT_EQ(pageFor(table, "/a"), "new");
    EXPECT_EQ(pageFor(table, "/bc"), "new");
}

TEST(PageTable, keepsAStarInTheMiddleAsText) {
    PageTable table;
    table.add("/a*b", named("star"));
    EXPECT_EQ(pageFor(table, "/a*b"), "star");
    EXPECT_EQ(pageFor(table, "/axb"), "(none)");
}

TEST(WebPageStatic, answersWithAllItsBytes) {
    const char bytes[] = {'a', '\0', 'b'};
    const WebPageStatic page(bytes, sizeof bytes, "image/x-icon", 203);
    PageTable table;
    table.add("/x", page);
    ProtocolHTTP::Request request;
    request.method = "POST";
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(table.find("/x")->create(nullptr, request, reply), 1);
    EXPECT_EQ(reply.body(), std::string(bytes, sizeof bytes));
    EXPECT_EQ(reply.code, 203u);
    EXPECT_STREQ(reply.header().getParam("content-type", ""), "image/x-icon");
}

/// A page that overrides nothing but what it must.
class BarePage : public WebPage {
public:
    WebPage* clone() const override { return new BarePage(*this); }
};

TEST(WebPage, doesNothingByDefault) {
    BarePage page;
    ProtocolHTTP::Reply reply;
    EXPECT_FALSE(page.create(ProtocolHTTP::Request(), reply));
    EXPECT_EQ(page.create(nullptr, ProtocolHTTP::Request(), reply), 0);
    EXPECT_EQ(reply.code, 200u);
    EXPECT_TRUE(reply.body().empty());
    EXPECT_TRUE(reply.header().entries().empty());
}

} // namespace
} // namespace Portico

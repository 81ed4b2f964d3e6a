#include "platform/portico/RequestTarget.h"

#include <gtest/gtest.h>
#include <string>

namespace Portico {
namespace {

/// The path that a target is read as; "(refused)" where it is.
std::string pathOf(const std::string& target) {
    std::string path;
    Config::ParamBag query;
    return RequestTarget::parse(target, path, query) ? path : "(refused)";
}

TEST(RequestTarget, leavesPlainPathsAlone) {
    EXPECT_EQ(pathOf("/"), "/");
    EXPECT_EQ(pathOf("/job/3"), "/job/3");
    EXPECT_EQ(pathOf("/job/3/"), "/job/3/");
    EXPECT_EQ(pathOf("//job//3"), "//job//3");
    EXPECT_EQ(pathOf("/.serviceid"), "/.serviceid");
    EXPECT_EQ(pathOf("/a/..b/...c/d."), "/a/..b/...c/d.");
}

TEST(RequestTarget, decodesOnce) {
    EXPECT_EQ(pathOf("/%6Aob"), "/job");
    EXPECT_EQ(pathOf("/job%2F3"), "/job/3");
    EXPECT_EQ(pathOf("/job%2f3"), "/job/3");
    EXPECT_EQ(pathOf("/%252e%252e/x"), "/%2e%2e/x");
    EXPECT_EQ(pathOf("/a%20b%3Fc%25"), "/a b?c%");
    EXPECT_EQ(pathOf("/%C3%A4+b"), "/\xc3\xa4+b");
}

TEST(RequestTarget, refusesMalformedEscapesInThePath) {
    for (const char* target :
         {"/%", "/%4", "/%4g", "/%g4", "/a%", "/%%41", "/% 41", "/%-1", "/%+1"})
        EXPECT_EQ(pathOf(target), "(refused)") << target;
}

TEST(RequestTarget, resolvesDotSegments) {
    EXPECT_EQ(pathOf("/a/./b"), "/a/b");
    EXPECT_EQ(pathOf("/a/../b"), "/b");
    EXPECT_EQ(pathOf("/a/b/../../c"), "/c");
    EXPECT_EQ(pathOf("/a/b/.."), "/a/");
    EXPECT_EQ(pathOf("/a/b/."), "/a/b/");
    EXPECT_EQ(pathOf("/."), "/");
    EXPECT_EQ(pathOf("/a/.."), "/");
    EXPECT_EQ(pathOf("/a/%2e%2e/b"), "/b");
    EXPECT_EQ(pathOf("/a%2F..%2Fb"), "/b");
    EXPECT_EQ(pathOf("//../x"), "/x");
}

TEST(RequestTarget, refusesWhatClimbsAboveTheRoot) {
    for (const char* target : {"/..", "/../", "/../x", "/%2e%2e/x", "/%2E./x", "/.%2e/x",
                               "/a/../../x", "/a/..%2f..%2fx", "/./../x", "/a/../../a/x", "/..%2f"})
        EXPECT_EQ(pathOf(target), "(refused)") << target;
}

TEST(RequestTarget, refusesControlCharacters) {
    for (const char* target : {"/a%00b", "/%0a", "/%0D%0A", "/%1f", "/%7F", "/%09", "/a\tb",
                               "/a\x01", "/a\x7f", "/a?b\x02"})
        EXPECT_EQ(pathOf(target), "(refused)") << target;
    EXPECT_EQ(pathOf(std::string("/a\0b", 4)), "(refused)");
    EXPECT_EQ(pathOf(std::string("/a?x\0", 5)), "(refused)");
}

TEST(RequestTarget, refusesWhatIsNoAbsolutePath) {
    for (const char* target :
         {"", "*", "?a=b", "job", "http://host/job", "host:80", "%2Fjob", "../job"})
        EXPECT_EQ(pathOf(target), "(refused)") << target;
}

TEST(RequestTarget, letsOtherCharactersThrough) {
    EXPECT_EQ(pathOf("/\xc3\xa4|[x]{y}^`\"<>\\#z"), "/\xc3\xa4|[x]{y}^`\"<>\\#z");
    EXPECT_EQ(pathOf("/a\\..\\b"), "/a\\..\\b");
}

TEST(RequestTarget, splitsAtTheFirstQuestionMark) {
    std::string path;
    Config::ParamBag query;
    ASSERT_TRUE(RequestTarget::parse("/a?b=/../c?d&e=%zz%00", path, query));
    EXPECT_EQ(path, "/a");
    EXPECT_STREQ(query.getParam("b", "-"), "/../c?d");
    EXPECT_STREQ(query.getParam("e", "-"), "%zz%00");
}

TEST(RequestTarget, handsQueryValuesOverAsTheyCame) {
    Config::ParamBag query;
    RequestTarget::parseQuery("a=1&b&c=&%61=x%20y+z&d=1=2;e=3&&a=2&A=3&=v&", query);
    EXPECT_STREQ(query.getParam("a", "-"), "1");
    EXPECT_STREQ(query.getParam("A", "-"), "3");
    EXPECT_TRUE(query.hasParam("b"));
    EXPECT_STREQ(query.getParam("b", "-"), "");
    EXPECT_STREQ(query.getParam("c", "-"), "");
    EXPECT_STREQ(query.getParam("%61", "-"), "x%20y+z");
    EXPECT_STREQ(query.getParam("d", "-"), "1=2;e=3");
    EXPECT_FALSE(query.hasParam("e"));
    EXPECT_STREQ(query.getParam("", "-"), "v");
    EXPECT_EQ(query.entries().size(), 8u);
}

TEST(RequestTarget, hasNoQueryWithoutAQuestionMark) {
    std::string path;
    Config::ParamBag query;
    ASSERT_TRUE(RequestTarget::parse("/a=b&c=d", path, query));
    EXPECT_TRUE(query.entries().empty());
    ASSERT_TRUE(RequestTarget::parse("/a?", path, query));
    EXPECT_TRUE(query.entries().empty());
}

} // namespace
} // namespace Portico

#include "platform/hub/Json.h"

#include <gtest/gtest.h>

namespace {

bool parses(const std::string& text) {
    picojson::value value;
    return OstrandHub::parseJson(text, value);
}

/// A value inside as many others, each between the two texts.
std::string nested(std::size_t depth, const std::string& open = "[",
                   const std::string& close = "]") {
    std::string text = "1";
    for (std::size_t i = 0; i < depth; ++i)
        text.insert(0, open).append(close);
    return text;
}

std::string repeated(std::size_t count, const std::string& piece) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

TEST(Json, ReadsValueWithWhiteSpaceAround) {
    picojson::value value;
    ASSERT_TRUE(OstrandHub::parseJson(" \t\r\n{\"a\":[1,\"x\"]} \t\r\n", value));
    EXPECT_EQ(value.serialize(), "{\"a\":[1,\"x\"]}");
}

TEST(Json, ReadsScalars) {
    EXPECT_TRUE(parses("1"));
    EXPECT_TRUE(parses("null"));
    EXPECT_TRUE(parses("\"x\""));
}

TEST(Json, RefusesWhatStandsBehindTheValue) {
    EXPECT_FALSE(parses("{} garbage"));
    EXPECT_FALSE(parses("{}{}"));
    EXPECT_FALSE(parses("{}\v"));
    EXPECT_FALSE(parses(std::string("{}\0", 3)));
}

TEST(Json, RefusesWhatIsNoJson) {
    EXPECT_FALSE(parses(""));
    EXPECT_FALSE(parses(" \n"));
    EXPECT_FALSE(parses("{"));
    EXPECT_FALSE(parses("{\"a\":}"));
    EXPECT_FALSE(parses("'a'"));
    EXPECT_FALSE(parses(std::string("\0", 1)));
}

TEST(Json, NumberOutOfRangeIsNoJsonAndThrowsNothing) {
    EXPECT_FALSE(parses("1e999"));
    EXPECT_FALSE(parses("{\"a\":[-1e999]}"));
    EXPECT_TRUE(parses("1e300"));
}

TEST(Json, NumbersAreDoubles) {
    picojson::value value;
    ASSERT_TRUE(OstrandHub::parseJson("7", value));
    EXPECT_TRUE(value.is<double>());
}

TEST(Json, DepthIsLimited) {
    EXPECT_TRUE(parses(nested(100)));
    EXPECT_FALSE(parses(nested(101)));
    EXPECT_FALSE(parses(std::string(1000000, '[')));
    EXPECT_TRUE(parses(nested(100, "{\"a\":", "}")));
    EXPECT_FALSE(parses(nested(101, "{\"a\":", "}")));
    EXPECT_TRUE(parses(nested(50, "[{\"a\":", "}]")));
    EXPECT_FALSE(parses(nested(51, "[{\"a\":", "}]")));
    EXPECT_FALSE(parses(repeated(1000000, "{\"a\":")));
    EXPECT_FALSE(parses(repeated(1000000, "[{\"a\":")));
}

TEST(Json, DepthIsThatOfOneBranch) {
    EXPECT_TRUE(parses("[" + repeated(300, "{},[[]],{\"a\":{\"b\":[]},\"c\":[{}]},") + "1]"));
}

TEST(Json, LeavesTheOutputAloneOnFailure) {
    picojson::value value("before");
    EXPECT_FALSE(OstrandHub::parseJson("[1,2", value));
    EXPECT_FALSE(OstrandHub::parseJson("[1] x", value));
    EXPECT_FALSE(OstrandHub::parseJson("[1e999]", value));
    EXPECT_EQ(value.serialize(), "\"before\"");
}

TEST(Json, EscapesQuotesBackslashesAndControlCharacters) {
    EXPECT_EQ(OstrandHub::escapeJson("a\"b\\c"), "a\\\"b\\\\c");
    EXPECT_EQ(OstrandHub::escapeJson(std::string("\n\x1f\0", 3)), "\\u000a\\u001f\\u0000");
    EXPECT_EQ(OstrandHub::escapeJson("plain / \xc3\xa4"), "plain / \xc3\xa4");
}

TEST(Json, EscapedTextReadsBackAsItWas) {
    std::string all;
    for (char c = 0; c < 0x7f; ++c)
        all += c;
    picojson::value value;
    ASSERT_TRUE(OstrandHub::parseJson("\"" + OstrandHub::escapeJson(all) + "\"", value));
    EXPECT_EQ(value.get<std::string>(), all);
}

} // namespace

#include "platform/portico/MessageHeader.h"

#include <gtest/gtest.h>

namespace Portico {
namespace {

TEST(MessageHeader, comparesNamesWithoutCase) {
    MessageHeader header;
    header.setParam("Content-Type", "text/plain");
    EXPECT_TRUE(header.hasParam("content-TYPE"));
    EXPECT_STREQ(header.getParam("CONTENT-type", nullptr), "text/plain");
    header.setParam("content-type", "text/html");
    EXPECT_EQ(header.entries().size(), 1u);
    EXPECT_STREQ(header.getParam("Content-Type", nullptr), "text/html");
}

TEST(MessageHeader, joinsRepeatedFields) {
    MessageHeader header;
    header.joinParam("Cookie", "a=1");
    header.joinParam("Accept", "x");
    header.joinParam("cookie", "b=2");
    header.joinParam("COOKIE", "");
    EXPECT_EQ(header.entries().size(), 2u);
    EXPECT_STREQ(header.getParam("Cookie", nullptr), "a=1, b=2, ");
    EXPECT_STREQ(header.getParam("Accept", nullptr), "x");
}

TEST(MessageHeader, tellsAbsentFromEmpty) {
    MessageHeader header;
    header.joinParam("A", "");
    EXPECT_STREQ(header.getParam("a", "-"), "");
    EXPECT_EQ(header.getParam("b", nullptr), nullptr);
    EXPECT_STREQ(header.getParam("b", "*/*"), "*/*");
}

} // namespace
} // namespace Portico

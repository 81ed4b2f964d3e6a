#include "platform/config/Base.h"

#include <gtest/gtest.h>

namespace Config {

TEST(BaseTest, TextIsItsOwnForm) {
    EXPECT_EQ(Base::value2String(""), "");
    const std::string bytes("a\0\xff%20", 7);
    EXPECT_EQ(Base::value2String(bytes), bytes);
}

TEST(BaseTest, FallbackStandsInForNullOnly) {
    EXPECT_EQ(Base::string2Value(nullptr, "fallback"), "fallback");
    EXPECT_EQ(Base::string2Value("", "fallback"), "");
    EXPECT_EQ(Base::string2Value("text", "fallback"), "text");
}

} // namespace Config

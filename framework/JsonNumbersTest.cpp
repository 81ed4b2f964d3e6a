#include "framework/JsonNumbers.h"

#include <gtest/gtest.h>
#include <limits>

namespace OstrandService {
namespace {

TEST(JsonNumbersTest, WritesTheIntegerPartInDecimal) {
    EXPECT_EQ(integerPart(0.0), "0");
    EXPECT_EQ(integerPart(-0.9), "0");
    EXPECT_EQ(integerPart(8181.9), "8181");
    EXPECT_EQ(integerPart(-8181.9), "-8181");
    EXPECT_EQ(integerPart(1234567.0), "1234567");
    EXPECT_EQ(integerPart(4294967296.0), "4294967296");
    EXPECT_EQ(integerPart(1e20), "100000000000000000000");
    EXPECT_EQ(integerPart(1e-300), "0");
    EXPECT_EQ(integerPart(std::numeric_limits<double>::max()).size(), 309u);
}

TEST(JsonNumbersTest, CutsToThirtyTwoBits) {
    EXPECT_EQ(cutToInt(0.9), 0);
    EXPECT_EQ(cutToInt(-0.9), 0);
    EXPECT_EQ(cutToInt(7.99), 7);
    EXPECT_EQ(cutToInt(-7.99), -7);
    EXPECT_EQ(cutToInt(2147483646.9), 2147483646);
    EXPECT_EQ(cutToInt(2147483647.0), 2147483647);
    EXPECT_EQ(cutToInt(-2147483647.5), -2147483647);
    EXPECT_EQ(cutToInt(-2147483648.0), std::numeric_limits<std::int32_t>::min());
}

TEST(JsonNumbersTest, TakesTheNearestForWhatDoesNotFit) {
    EXPECT_EQ(cutToInt(1e300), 2147483647);
    EXPECT_EQ(cutToInt(-1e300), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(cutToInt(std::numeric_limits<double>::infinity()), 2147483647);
    EXPECT_EQ(cutToInt(std::numeric_limits<double>::quiet_NaN()), 0);
}

} // namespace
} // namespace OstrandService

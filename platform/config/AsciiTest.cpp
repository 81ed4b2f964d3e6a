#include "platform/config/Ascii.h"

#include <gtest/gtest.h>

namespace Config {
namespace {

TEST(Ascii, LettersAndDigitsEndWhereTheyEnd) {
    for (const char c : {'A', 'Z', 'a', 'z'})
        EXPECT_TRUE(isLetter(c)) << c;
    for (const char c : {'@', '[', '`', '{', '0', '\xc4', '\0'})
        EXPECT_FALSE(isLetter(c)) << c;
    EXPECT_TRUE(isDigit('0') && isDigit('9'));
    EXPECT_FALSE(isDigit('/') || isDigit(':') || isDigit('a'));
}

TEST(Ascii, LowerCaseOfCapitalLettersAlone) {
    EXPECT_EQ(lowerCase("AZaz@[`{09\xc4"), "azaz@[`{09\xc4");
    EXPECT_EQ(lowerCase(""), "");
}

TEST(Ascii, ValuesOfHexadecimalDigits) {
    const std::string digits = "0123456789abcdefABCDEF";
    for (std::size_t i = 0; i < digits.size(); ++i)
        EXPECT_EQ(hexValue(digits[i]), static_cast<int>(i < 16 ? i : i - 6)) << digits[i];
    for (const char c : {'/', ':', '@', 'G', '`', 'g', ' ', '\0', '\xff'})
        EXPECT_EQ(hexValue(c), -1) << c;
}

} // namespace
} // namespace Config

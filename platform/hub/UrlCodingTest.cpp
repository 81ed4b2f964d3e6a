#include "platform/hub/UrlCoding.h"

#include <gtest/gtest.h>

namespace {

TEST(UrlCoding, EncodesAllButUnreservedBytes) {
    EXPECT_EQ(url_encode("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(url_encode("a b/c?d=e&f+g%"), "a%20b%2Fc%3Fd%3De%26f%2Bg%25");
    EXPECT_EQ(url_encode("\"\\\n\x7f"), "%22%5C%0A%7F");
    EXPECT_EQ(url_encode("\xc3\xa4\xff"), "%C3%A4%FF");
    EXPECT_EQ(url_encode(std::string("\0", 1)), "%00");
    EXPECT_EQ(url_encode(""), "");
}

TEST(UrlCoding, DecodesOnce) {
    EXPECT_EQ(url_decode("%41%6a%6A"), "Ajj");
    EXPECT_EQ(url_decode("%2541"), "%41");
    EXPECT_EQ(url_decode("%00x"), std::string("\0x", 2));
    EXPECT_EQ(url_decode("%ff"), "\xff");
}

TEST(UrlCoding, LeavesPlusAlone) {
    EXPECT_EQ(url_decode("a+b%2B"), "a+b+");
}

TEST(UrlCoding, KeepsMalformedEscapes) {
    EXPECT_EQ(url_decode("%"), "%");
    EXPECT_EQ(url_decode("%4"), "%4");
    EXPECT_EQ(url_decode("%4g%g4"), "%4g%g4");
    EXPECT_EQ(url_decode("100%"), "100%");
    EXPECT_EQ(url_decode("%%41"), "%A");
    EXPECT_EQ(url_decode("% 1%+1%-1"), "% 1%+1%-1");
}

TEST(UrlCoding, DecodingUndoesEncoding) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(url_decode(url_encode(all)), all);
}

} // namespace

#include "platform/hub/Icon.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace {

const std::string& icon() {
    static const std::string bytes(OstrandHub::ostrandHub_icon_col_sans_ico, OstrandHub::iconSize);
    return bytes;
}

/// The number in `size` bytes at `offset`, lowest first.
std::uint32_t number(std::size_t offset, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(icon().at(offset + i));
    return value;
}

std::uint32_t rowSize(std::uint32_t bits) {
    return (bits + 31) / 32 * 4;
}

constexpr std::size_t directorySize = 6;
constexpr std::size_t entrySize = 16;

TEST(Icon, HasItsSize) {
    EXPECT_EQ(OstrandHub::iconSize, 13752U);
    EXPECT_EQ(icon().size(), 13752U);
    // The byte behind the last one ends the literal: the data are not longer either.
    EXPECT_EQ(OstrandHub::ostrandHub_icon_col_sans_ico[OstrandHub::iconSize], '\0');
}

TEST(Icon, IsAnIconFileWithSeveralSizes) {
    EXPECT_EQ(number(0, 2), 0U);
    EXPECT_EQ(number(2, 2), 1U);
    EXPECT_GE(number(4, 2), 3U);
}

TEST(Icon, ImagesFollowOneAnotherToTheEnd) {
    const std::uint32_t count = number(4, 2);
    std::uint32_t next = static_cast<std::uint32_t>(directorySize + entrySize * count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t entry = directorySize + entrySize * i;
        EXPECT_EQ(number(entry + 12, 4), next);
        next += number(entry + 8, 4);
    }
    EXPECT_EQ(next, OstrandHub::iconSize);
}

TEST(Icon, BitmapsAreWhatTheirEntriesSay) {
    std::size_t bitmaps = 0;
    for (std::uint32_t i = 0; i < number(4, 2); ++i) {
        const std::size_t entry = directorySize + entrySize * i;
        const std::uint32_t width = number(entry, 1);
        const std::uint32_t depth = number(entry + 6, 2);
        const std::uint32_t offset = number(entry + 12, 4);
        EXPECT_EQ(number(entry + 1, 1), width);
        if (icon().compare(offset, 4, "\x89PNG") == 0)
            continue;
        ++bitmaps;
        EXPECT_EQ(number(offset, 4), 40U);
        EXPECT_EQ(number(offset + 4, 4), width);
        EXPECT_EQ(number(offset + 8, 4), 2 * width);
        EXPECT_EQ(number(offset + 14, 2), depth);
        const std::uint32_t palette = 4 * number(offset + 32, 4);
        EXPECT_EQ(number(entry + 8, 4),
                  40 + palette + rowSize(width * depth) * width + rowSize(width) * width);
    }
    EXPECT_GE(bitmaps, 3U);
}

TEST(Icon, LargeImageIsAWholePng) {
    const std::size_t start = icon().find("\x89PNG\r\n\x1a\n");
    ASSERT_NE(start, std::string::npos);
    std::size_t at = start + 8;
    std::string kinds;
    while (at < icon().size()) {
        std::uint32_t length = 0;
        for (std::size_t i = 0; i < 4; ++i)
            length = length << 8 | static_cast<unsigned char>(icon().at(at + i));
        kinds += icon().substr(at + 4, 4) + " ";
        at += 12 + length;
    }
    EXPECT_EQ(at, icon().size());
    EXPECT_EQ(kinds, "IHDR tEXt IDAT IEND ");
}

} // namespace

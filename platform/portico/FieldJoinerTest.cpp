#include "platform/portico/FieldJoiner.h"

#include <gtest/gtest.h>
#include <string>

namespace Portico {
namespace {

TEST(FieldJoiner, joinsEqualNamesHoweverManyFieldsThereAre) {
    MessageHeader header;
    FieldJoiner joiner(header);
    constexpr int count = 5000;
    for (const char* prefix : {"Name-", "nAME-"}) {
        for (int i = 0; i < count; ++i)
            joiner.add(prefix + std::to_string(i), prefix + std::to_string(-i));
    }
    joiner.finish();
    ASSERT_EQ(header.entries().size(), static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const auto& [name, value] = header.entries()[static_cast<std::size_t>(i)];
        EXPECT_EQ(name, "Name-" + std::to_string(i));
        EXPECT_EQ(value, "Name-" + std::to_string(-i) + ", nAME-" + std::to_string(-i));
    }
    EXPECT_STREQ(header.getParam("NAME-31", ""), "Name--31, nAME--31");
    EXPECT_STREQ(header.getParam("NAME-32", ""), "Name--32, nAME--32");
    EXPECT_STREQ(header.getParam("NAME-4999", ""), "Name--4999, nAME--4999");
}

} // namespace
} // namespace Portico

#include "framework/StatusFile.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

TEST(StatusFileTest, FormatsEveryStateToTheByte) {
    EXPECT_EQ(StatusFile::format(JobState::OPEN), "{ \"status\" : 0 }\n");
    EXPECT_EQ(StatusFile::format(JobState::CLOSED), "{ \"status\" : 3 }\n");
    EXPECT_EQ(StatusFile::format(JobState::INVALID), "{ \"status\" : 9 }\n");
}

TEST(StatusFileTest, ReadsWhatItWrites) {
    for (std::uint32_t number = 0; number < 10; ++number) {
        const auto state = static_cast<JobState>(number);
        EXPECT_EQ(StatusFile::parse(StatusFile::format(state)), state) << number;
    }
}

TEST(StatusFileTest, ReadsAnyFormOfTheObject) {
    EXPECT_EQ(StatusFile::parse("{\"status\":3}"), JobState::CLOSED);
    EXPECT_EQ(StatusFile::parse(" \t\r\n{\"a\":[],\"status\" : 3 , \"b\":{}} \n\n"),
              JobState::CLOSED);
    EXPECT_EQ(StatusFile::parse("{\"status\":3e0}"), JobState::CLOSED);
}

TEST(StatusFileTest, CutsFractions) {
    EXPECT_EQ(StatusFile::parse("{\"status\":3.9}"), JobState::CLOSED);
    EXPECT_EQ(StatusFile::parse("{\"status\":-0.5}"), JobState::OPEN);
    EXPECT_EQ(StatusFile::parse("{\"status\":-0.0}"), JobState::OPEN);
    EXPECT_EQ(StatusFile::parse("{\"status\":9.999}"), JobState::INVALID);
}

TEST(StatusFileTest, RefusesNumbersThatAreNoState) {
    for (const char* number : {"10", "12", "-1", "-1.5", "4294967295", "4294967296", "1e300",
                               "-1e300", "1e999", "-1e999", "9223372036854775808"}) {
        const std::string text = std::string("{ \"status\" : ") + number + " }\n";
        EXPECT_EQ(StatusFile::parse(text), std::nullopt) << text;
    }
}

TEST(StatusFileTest, RefusesEverythingElse) {
    for (const char* text : {"",
                             " ",
                             "\n",
                             "no JSON",
                             "3",
                             "\"3\"",
                             "null",
                             "[3]",
                             "[{\"status\":3}]",
                             "{}",
                             "{\"Status\":3}",
                             "{\"status\":\"3\"}",
                             "{\"status\":null}",
                             "{\"status\":true}",
                             "{\"status\":[3]}",
                             "{\"status\":{}}",
                             "{ \"status\" : 3",
                             "{ \"status\" : }",
                             "{ \"status\" : 3 } x",
                             "{ \"status\" : 3 }{ \"status\" : 3 }",
                             "{ \"status\" : 0x3 }"})
        EXPECT_EQ(StatusFile::parse(text), std::nullopt) << text;
}

TEST(StatusFileTest, RefusesAZeroByteBehindTheObject) {
    EXPECT_EQ(StatusFile::parse(std::string("{\"status\":3}\0", 13)), std::nullopt);
}

} // namespace
} // namespace OstrandService

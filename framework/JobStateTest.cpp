#include "framework/JobState.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace OstrandService {
namespace {

TEST(JobStateTest, NamesEveryState) {
    const char* const names[] = {
        "OPEN",     "IN PROCESS", "TERMINATING", "CLOSED",  "MARKED FOR DELETION",
        "CANCELED", "ERROR",      "TERMINATED",  "DELETED", "INVALID"};
    for (std::uint32_t number = 0; number < 10; ++number)
        EXPECT_EQ(jobStateName(static_cast<JobState>(number)), names[number]) << number;
}

TEST(JobStateTest, NamesWhatIsNoStateUndefined) {
    EXPECT_EQ(jobStateName(static_cast<JobState>(10)), "UNDEFINED");
    EXPECT_EQ(jobStateName(static_cast<JobState>(4294967295u)), "UNDEFINED");
}

// The numbers are those of the files of job folders.
TEST(JobStateTest, KeepsItsNumbers) {
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::OPEN), 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::IN_PROCESS), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::TERMINATING), 2u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::CLOSED), 3u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::MARKED_FOR_DELETION), 4u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::CANCELED), 5u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::ERROR), 6u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::TERMINATED), 7u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::DELETED), 8u);
    EXPECT_EQ(static_cast<std::uint32_t>(JobState::INVALID), 9u);
    EXPECT_EQ(sizeof(JobState), 4u);
}

} // namespace
} // namespace OstrandService

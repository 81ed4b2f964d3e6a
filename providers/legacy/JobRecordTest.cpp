#include "providers/legacy/JobRecord.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

TEST(LegacyJobState, NamesOfTheTable) {
    const char* const names[] = {"OPEN",     "IN PROCESS",          "CLOSED",
                                 "ERROR",    "MARKED FOR DELETION", "DELETED",
                                 "CANCELED", "TERMINATED",          "INVALID"};
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(legacyStateName(i), names[i]);
    EXPECT_EQ(legacyStateName(9), "UNDEFINED");
    EXPECT_EQ(legacyStateName(-1), "UNDEFINED");
}

TEST(JobRecord, StatusTextHasNoBlankBeforeTheBrace) {
    EXPECT_EQ(JobRecord::statusText(3), "{ \"status\" : 3}\n");
}

TEST(JobRecord, StatusIsReadFromTheFrameworksFormToo) {
    EXPECT_EQ(JobRecord::parseStatus("{ \"status\" : 0}\n"), 0);
    EXPECT_EQ(JobRecord::parseStatus("{\"status\":8}"), 8);
    EXPECT_EQ(JobRecord::parseStatus("{\"status\":2.9} and more"), 2);
}

class BadStatus : public ::testing::TestWithParam<const char*> {};

TEST_P(BadStatus, ReadsAsError) {
    EXPECT_EQ(JobRecord::parseStatus(GetParam()), 3);
}

INSTANTIATE_TEST_SUITE_P(All, BadStatus,
                         ::testing::Values("", "x", "[]", "{}", "{\"status\":\"2\"}",
                                           "{\"status\":12}", "{\"status\":8.5}",
                                           "{\"status\":-0.5}", "{\"status\":-1}",
                                           "{\"status\":1e300}", "{\"status\":1e999}",
                                           "{\"status\":null}"));

TEST(JobRecord, MissingStatusFileIsAnErrorAndIsNotWritten) {
    const Support::TemporaryFolder folder;
    JobRecord record("");
    record.folder = folder.path();
    record.readState();
    EXPECT_EQ(record.state, 3);
    EXPECT_FALSE(boost::filesystem::exists(folder.path(".status")));
}

TEST(JobRecord, WrittenStateIsReadAgain) {
    const Support::TemporaryFolder folder;
    JobRecord record("");
    record.folder = folder.path();
    record.writeState(6);
    JobRecord other("");
    other.folder = folder.path();
    other.readState();
    EXPECT_EQ(other.state, 6);
}

TEST(JobRecord, TextIsReadUpToTheEndOfItsValue) {
    JobRecord record("");
    EXPECT_TRUE(record.parseJobText("{\"resource\":\"r\"} and more"));
    EXPECT_EQ(record.getUid(), "r");
    EXPECT_FALSE(JobRecord("").parseJobText("{"));
    EXPECT_FALSE(JobRecord("").parseJobText("[{\"resource\":\"r\"}]"));
    EXPECT_FALSE(JobRecord("").parseJobText("{\"resource\":1e999}"));
}

TEST(JobRecord, UploadIsLookedUpByItsNameAlone) {
    JobRecord record("/up");
    const std::string text = "{\"resource\":\"a/b.x3d@01234567-89ab-cdef-0123-456789abcdef\"}";
    ASSERT_TRUE(record.parseJobText(text));
    EXPECT_EQ(record.resource, "/up/b.x3d");
    EXPECT_EQ(record.getUid(), "a/b.x3d@01234567-89ab-cdef-0123-456789abcdef");
}

TEST(JobRecord, ResultNameFollowsTheFormat) {
    JobRecord record("");
    ASSERT_TRUE(record.parseJobText("{\"resource\":\"r\",\"format\":\"html\"}"));
    EXPECT_EQ(outputIndexName(record), "index.html");
}

} // namespace
} // namespace OstrandService

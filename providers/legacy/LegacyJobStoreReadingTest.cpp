#include "providers/legacy/LegacyJobStoreTest.h"

namespace OstrandService {
namespace {

TEST_F(LegacyJobStoreTest, DescriptionWithoutUidTakesThePlaceOfTheGaps) {
    folder.write("3/.status", JobRecord::statusText(2));
    store.loadJob(3, "no JSON", folder.path("3"));
    for (const std::uint32_t gap : {1u, 2u})
        EXPECT_EQ(store.getJobRecord(gap).state, LegacyJobStates::error) << gap;
    folder.write("5/.status", JobRecord::statusText(2));
    store.loadJob(5, "{}", folder.path("5"));
    EXPECT_EQ(store.getJobRecord(5).id, 3u) << "the earlier record stays";
    EXPECT_EQ(store.numJobsFailed(), 2u);
}

TEST_F(LegacyJobStoreTest, SecondFolderWithOneUidKeepsTheEarlierRecord) {
    for (const std::uint32_t id : {2u, 4u}) {
        const std::string name = std::to_string(id);
        folder.write(name + "/.status", JobRecord::statusText(id == 2 ? 2 : 3));
        store.loadJob(id, "{\"resource\":\"r\"}", folder.path(name));
    }
    EXPECT_EQ(store.getJobRecord(4).id, 2u);
    EXPECT_EQ(store.getJobRecord(4).state, LegacyJobStates::closed);
    EXPECT_EQ(store.numJobsTotal(), 2u);
    EXPECT_EQ(store.numJobsFailed(), 1u);
    EXPECT_EQ(submit("r"), 2u);
}

TEST_F(LegacyJobStoreTest, IdsAndUidsWithoutARecord) {
    submit("ALREADY EXISTS");
    for (const std::uint32_t id : {0u, 2u, 4294967295u}) {
        EXPECT_EQ(store.getJobRecord(id).state, LegacyJobStates::invalid) << id;
        EXPECT_EQ(store.getAddedTime(id), 0) << id;
    }
    EXPECT_EQ(store.getJobState("none"), LegacyJobStates::invalid);
    EXPECT_EQ(store.getCommandLine("none"), "");
    store.setAddedTime(9, 1);
    store.addTiming(9, {1, 2});
    EXPECT_EQ(store.getKey(9), "");
}

TEST_F(LegacyJobStoreTest, TimingsAreWrittenAndReadAgain) {
    submit("r");
    store.setAddedTime(1, 12.5);
    store.addTiming(store.getJobRecord(1), {20, 30.25});
    store.writeTimings(store.getJobRecord(1), folder.path("1/.timings"));
    EXPECT_EQ(folder.read("1/.timings"), R"({"added":12.5,"timings":[{"done":30.25,"proc":20}]})");
    submit("s");
    store.loadTimings(2, folder.read("1/.timings"));
    EXPECT_EQ(store.getAddedTime(2), 12.5);
    EXPECT_EQ(store.getJobRecord(2).timings, (std::vector<JobRecord::Timing>{{20, 30.25}}));
}

TEST_F(LegacyJobStoreTest, TimingsOfAnotherFormStopTheReader) {
    submit("r");
    const double added = store.getAddedTime(1);
    for (const char* text :
         {"", "x", "[]", "{\"timings\":[{\"proc\":1,\"done\":2}]}",
          "{\"added\":\"1\",\"timings\":[{\"proc\":1,\"done\":2}]}", "{\"added\":1e999}"})
        store.loadTimings(1, text);
    EXPECT_EQ(store.getAddedTime(1), added);
    store.loadTimings(1, R"({"added":1,"timings":{}})");
    EXPECT_EQ(store.getAddedTime(1), 1);
    store.loadTimings(
        1, R"({"added":1,"timings":[1,{"proc":1},{"done":2,"proc":1},{"proc":"1","done":2}]})");
    EXPECT_EQ(store.getJobRecord(1).timings, (std::vector<JobRecord::Timing>{{1, 2}}));
}

TEST_F(LegacyJobStoreTest, ReloadFillsGapsWithThePlaceholder) {
    for (const std::uint32_t id : {2u, 5u}) {
        const std::string name = std::to_string(id);
        folder.write(name + "/.status", "{ \"status\" : 2}\n");
        store.loadJob(id, "{\"resource\":\"r" + name + "\"}", folder.path(name));
    }
    EXPECT_EQ(store.maxJobId(), 5u);
    for (const std::uint32_t gap : {1u, 3u, 4u}) {
        EXPECT_EQ(store.getKey(gap), "");
        EXPECT_EQ(store.getJobRecord(gap).state, LegacyJobStates::invalid);
    }
    EXPECT_EQ(store.numJobsTotal(), 2u);
    EXPECT_EQ(store.numJobsFinished(), 2u);
    EXPECT_EQ(store.numJobsOpen(), 0u);
    EXPECT_EQ(submit("new"), 6u);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 6u);
}

TEST_F(LegacyJobStoreTest, ReloadCountsStatesAndTakesNothingUpAgain) {
    for (const LegacyJobState loaded : {0, 1, 2, 3, 7}) {
        const auto id = static_cast<std::uint32_t>(loaded + 1);
        const std::string name = std::to_string(id);
        folder.write(name + "/.status", JobRecord::statusText(loaded));
        store.loadJob(id, "{\"resource\":\"r" + name + "\"}", folder.path(name));
    }
    EXPECT_EQ(store.numJobsFinished(), 5u);
    EXPECT_EQ(store.numJobsFailed(), 2u);
    EXPECT_EQ(store.getJobState("r1"), LegacyJobStates::open);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 0u);
}

TEST_F(LegacyJobStoreTest, DescriptionThatCannotBeReadMakesAnErrorOnDiskToo) {
    folder.write("1/.status", "{ \"status\" : 2}\n");
    store.loadJob(1, "{", folder.path("1"));
    EXPECT_EQ(store.getJobRecord(1).state, LegacyJobStates::error);
    EXPECT_EQ(folder.read("1/.status"), "{ \"status\" : 3}\n");
    EXPECT_EQ(store.numJobsFailed(), 1u);
}

} // namespace
} // namespace OstrandService

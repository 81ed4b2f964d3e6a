#include "providers/legacy/LegacyJobStoreTest.h"

#include "platform/hub/FileSizeLimit.h"

#include <set>
#include <thread>
#include <unistd.h>

namespace OstrandService {
namespace {

namespace fs = boost::filesystem;

TEST_F(LegacyJobStoreTest, EmptyStore) {
    EXPECT_EQ(store.maxJobId(), 0u);
    EXPECT_EQ(idOf(store.takeDeleteRequest()), 0u);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 0u);
    EXPECT_EQ(store.numJobsOpen(), 0u);
}

TEST_F(LegacyJobStoreTest, FirstJobHasItsWholeFolder) {
    EXPECT_EQ(submit("r", "as sent\r\n"), 1u);
    EXPECT_EQ(store.maxJobId(), 1u);
    EXPECT_EQ(folder.read("1/.status"), "{ \"status\" : 0}\n");
    EXPECT_EQ(folder.read("1/.meta"), "as sent\r\n");
    EXPECT_EQ(folder.read("1/.partial"), "");
    EXPECT_EQ(folder.read("1/jobId"), "1@");
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.path("1")))
        names.insert(entry.path().filename().string());
    EXPECT_EQ(names, (std::set<std::string>{".meta", ".partial", ".status", "binGeo", "imgGeo",
                                            "jobId", "popGeo"}));
    EXPECT_EQ(store.getCommandLine("r"), "Not Run Yet");
}

TEST_F(LegacyJobStoreTest, CookiesOfANewJobAreWrittenForItsUserAlone) {
    JobRecord record("");
    ASSERT_TRUE(record.parseJobText(R"({"resource":"r","cookies":{"b":"2","a":"1"}})"));
    store.submitJob(record, "{}");
    EXPECT_EQ(folder.read("1/.cookie"), "a\n1\nb\n2\n");
    EXPECT_EQ(fs::status(folder.path("1/.cookie")).permissions(), fs::owner_read | fs::owner_write);
}

TEST_F(LegacyJobStoreTest, SecondSubmissionOfALiveJobChangesNothing) {
    for (const LegacyJobState live : {0, 1, 2, 4}) {
        const std::string uid = "r" + std::to_string(live);
        const std::uint32_t id = submit(uid, "first");
        if (live != 0)
            store.setJobState(store.getJobRecord(id), live);
        const std::uint32_t total = store.numJobsTotal();
        EXPECT_EQ(submit(uid, "second"), id);
        EXPECT_EQ(store.numJobsTotal(), total);
        EXPECT_EQ(folder.read(std::to_string(id) + "/.meta"), "first");
        EXPECT_EQ(store.getJobState(uid), live);
    }
}

TEST_F(LegacyJobStoreTest, FailedJobComesBackWithItsOldDescription) {
    JobRecord first("");
    ASSERT_TRUE(first.parseJobText(R"({"resource":"r","uid":"u"})"));
    ASSERT_EQ(store.submitJob(first, "first"), 1u);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 1u);
    finish(1, LegacyJobStates::error);
    JobRecord second("");
    ASSERT_TRUE(second.parseJobText(R"({"resource":"other","uid":"u"})"));
    EXPECT_EQ(store.submitJob(second, "second"), 1u);
    EXPECT_EQ(store.getJobRecord(1).resource, "r");
    EXPECT_EQ(folder.read("1/.meta"), "second");
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 1u) << "the cursor comes back to it";
    finish(1, LegacyJobStates::closed);
    // It counts twice, and its failure stays counted.
    EXPECT_EQ(store.numJobsTotal(), 2u);
    EXPECT_EQ(store.numJobsFinished(), 2u);
    EXPECT_EQ(store.numJobsFailed(), 1u);
    EXPECT_EQ(store.numJobsOpen(), 0u);
}

TEST_F(LegacyJobStoreTest, JobThatCannotGetItsFolderFailsAndMayBeTriedAgain) {
    folder.write("1", "in the way");
    EXPECT_ANY_THROW(submit("r"));
    EXPECT_EQ(store.getJobState("r"), LegacyJobStates::error);
    fs::remove(folder.path("1"));
    EXPECT_EQ(submit("r"), 1u);
    EXPECT_EQ(folder.read("1/.status"), "{ \"status\" : 0}\n");
}

TEST_F(LegacyJobStoreTest, NewJobWhoseDescriptionCannotBeWrittenIsNotTaken) {
    {
        const FileSizeLimit full(0);
        EXPECT_ANY_THROW(submit("r"));
        EXPECT_ANY_THROW(submit("r")) << "nor when it is tried again";
    }
    EXPECT_EQ(store.getJobState("r"), LegacyJobStates::error);
    EXPECT_EQ(store.numJobsTotal(), 0u);
    EXPECT_EQ(submit("r", "text"), 1u);
    EXPECT_EQ(folder.read("1/.meta"), "text");
    EXPECT_EQ(folder.read("1/.status"), "{ \"status\" : 0}\n");
    EXPECT_EQ(store.numJobsTotal(), 1u);
}

TEST_F(LegacyJobStoreTest, JobThatComesBackMayKeepItsOldDescriptionOnAFullDisk) {
    submit("r", "first");
    finish(1, LegacyJobStates::error);
    const FileSizeLimit full(0);
    EXPECT_EQ(submit("r", "second"), 1u);
    EXPECT_EQ(folder.read("1/.meta"), "first");
    EXPECT_EQ(store.getJobState("r"), LegacyJobStates::open);
}

TEST_F(LegacyJobStoreTest, EndThatTheDiskDoesNotTakeIsWrittenLater) {
    submit("r");
    const JobRecord taken = store.getJobRecord(1);
    {
        const FileSizeLimit full(0);
        finish(1, LegacyJobStates::closed);
        store.clearPartial(taken, folder.path("1"));
        store.settle();
        EXPECT_EQ(store.getJobState("r"), LegacyJobStates::closed);
        EXPECT_TRUE(fs::exists(folder.path("1/.partial"))) << "or a restart would tell otherwise";
    }
    store.settle();
    EXPECT_EQ(folder.read("1/.status"), "{ \"status\" : 2}\n");
    EXPECT_FALSE(fs::exists(folder.path("1/.partial")));
}

TEST_F(LegacyJobStoreTest, LateEndSparesTheMarkerOfAJobThatCameBack) {
    submit("r");
    const JobRecord taken = store.getJobRecord(1);
    {
        const FileSizeLimit full(0);
        finish(1, LegacyJobStates::error);
        store.clearPartial(taken, folder.path("1"));
    }
    submit("r");
    store.settle();
    EXPECT_EQ(folder.read("1/.status"), "{ \"status\" : 0}\n");
    EXPECT_TRUE(fs::exists(folder.path("1/.partial")));
}

TEST_F(LegacyJobStoreTest, NewJobThatCannotBeMarkedIsNotTaken) {
    folder.makeFolder("1");
    ASSERT_EQ(::symlink("nowhere/at/all", folder.path("1/.partial").c_str()), 0);
    EXPECT_ANY_THROW(submit("r"));
    EXPECT_EQ(store.getJobState("r"), LegacyJobStates::error);
    EXPECT_FALSE(fs::exists(folder.path("1/.meta")));
    EXPECT_EQ(submit("r"), 1u) << "the link went with the failed try";
}

TEST_F(LegacyJobStoreTest, JobThatComesBackGetsALostFolderAnew) {
    submit("r");
    store.requestDelete(1);
    fs::remove_all(folder.path("1"));
    EXPECT_EQ(submit("r", "again"), 1u);
    EXPECT_EQ(folder.read("1/.meta"), "again");
    EXPECT_TRUE(fs::exists(folder.path("1/popGeo")));
}

TEST_F(LegacyJobStoreTest, CursorThatComesBackRunsOpenJobsOfAnEarlierProcess) {
    for (const std::uint32_t id : {1u, 2u, 3u}) {
        const std::string name = std::to_string(id);
        folder.write(name + "/.status", JobRecord::statusText(id == 1 ? 3 : 0));
        store.loadJob(id, "{\"resource\":\"r" + name + "\"}", folder.path(name));
    }
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 0u);
    EXPECT_EQ(submit("r1"), 1u);
    for (const std::uint32_t id : {1u, 2u, 3u})
        EXPECT_EQ(idOf(store.takeNextOpenJob()), id);
    // They count as finished since their loading, and once more at their end.
    for (const std::uint32_t id : {1u, 2u, 3u})
        finish(id, LegacyJobStates::closed);
    EXPECT_EQ(store.numJobsOpen(), 4u - 6u);
}

TEST_F(LegacyJobStoreTest, CursorComesBackNoFurtherThanItsJob) {
    for (const std::uint32_t id : {1u, 2u}) {
        const std::string name = std::to_string(id);
        folder.write(name + "/.status", JobRecord::statusText(id == 1 ? 0 : 3));
        store.loadJob(id, "{\"resource\":\"r" + name + "\"}", folder.path(name));
    }
    EXPECT_EQ(submit("r2"), 2u);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 2u);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 0u);
}

TEST_F(LegacyJobStoreTest, EachSubmissionThatRunsHasItsTime) {
    submit("r");
    const double first = store.getAddedTime(1);
    EXPECT_GT(first, 0);
    submit("r");
    EXPECT_EQ(store.getAddedTime(1), first);
    finish(1, LegacyJobStates::error);
    submit("r");
    EXPECT_GT(store.getAddedTime(1), first);
}

TEST_F(LegacyJobStoreTest, CounterOfEachChangeOfState) {
    struct Change {
        LegacyJobState from;
        LegacyJobState to;
        std::uint32_t finished; // what both counters together, and that of errors, come to
        std::uint32_t failed;
    };
    // From a state that was counted once.
    const Change changes[] = {{0, 1, 0, 0}, {0, 2, 1, 0}, {0, 3, 1, 1}, {0, 7, 1, 1}, {0, 6, 0, 0},
                              {1, 2, 1, 0}, {1, 3, 1, 1}, {1, 7, 1, 1}, {1, 0, 0, 0}, {2, 0, 0, 0},
                              {2, 3, 1, 0}, {2, 4, 1, 0}, {3, 0, 0, 0}, {3, 2, 1, 1}, {3, 7, 1, 1},
                              {7, 0, 0, 0}, {7, 2, 1, 1}, {5, 2, 0, 0}, {6, 0, 0, 0}, {4, 5, 0, 0}};
    for (const Change& change : changes) {
        store.clear();
        submit("r");
        store.setJobState(store.getJobRecord(1), change.from);
        store.setJobState(store.getJobRecord(1), change.to);
        EXPECT_EQ(store.numJobsFinished(), change.finished) << change.from << change.to;
        EXPECT_EQ(store.numJobsFailed(), change.failed) << change.from << change.to;
        EXPECT_EQ(folder.read("1/.status"), JobRecord::statusText(change.to));
    }
}

TEST_F(LegacyJobStoreTest, DeletionByState) {
    for (const char* uid : {"open", "running", "closed", "failed"})
        submit(uid);
    store.setJobState(store.getJobRecord(2), LegacyJobStates::inProcess);
    finish(3, LegacyJobStates::closed);
    finish(4, LegacyJobStates::error);
    EXPECT_TRUE(store.requestDelete(1));
    EXPECT_FALSE(store.requestDelete(2));
    EXPECT_TRUE(store.requestDelete(3));
    EXPECT_TRUE(store.requestDelete(4));
    EXPECT_EQ(store.getJobState("open"), LegacyJobStates::canceled);
    EXPECT_EQ(store.getJobState("closed"), LegacyJobStates::markedForDeletion);
    for (const std::uint32_t again : {0u, 1u, 3u, 5u, 4294967295u})
        EXPECT_FALSE(store.requestDelete(again)) << again;
    EXPECT_EQ(idOf(store.takeDeleteRequest()), 3u);
    EXPECT_EQ(idOf(store.takeDeleteRequest()), 4u);
    EXPECT_EQ(idOf(store.takeDeleteRequest()), 0u);
    // A canceled job stays counted as open, deleted ones as finished.
    EXPECT_EQ(store.numJobsOpen(), 2u);
    EXPECT_EQ(store.numJobsFinished(), 2u);
}

TEST_F(LegacyJobStoreTest, CursorHandsOutEachOpenJobOnce) {
    for (int i = 0; i < 200; ++i)
        submit("r" + std::to_string(i));
    store.requestDelete(7);
    std::vector<std::uint32_t> taken[2];
    std::thread threads[2];
    for (int t = 0; t < 2; ++t) {
        threads[t] = std::thread([&, t] {
            while (const std::uint32_t id = idOf(store.takeNextOpenJob()))
                taken[t].push_back(id);
        });
    }
    std::set<std::uint32_t> all;
    for (int t = 0; t < 2; ++t) {
        threads[t].join();
        all.insert(taken[t].begin(), taken[t].end());
    }
    EXPECT_EQ(taken[0].size() + taken[1].size(), 199u);
    EXPECT_EQ(all.size(), 199u);
    EXPECT_EQ(all.count(7), 0u);
}

TEST_F(LegacyJobStoreTest, ClearForgetsAllAndDropsWhatOldWorkersTell) {
    submit("r");
    const JobRecord old = store.getJobRecord(1);
    store.clear();
    EXPECT_EQ(store.maxJobId(), 0u);
    EXPECT_EQ(store.numJobsTotal(), 0u);
    ASSERT_EQ(submit("r"), 1u);
    store.setJobState(old, LegacyJobStates::closed);
    store.setCommandLine(old, "old");
    store.addTiming(old, {1, 2});
    store.clearPartial(old, folder.path("1"));
    store.writeTimings(old, folder.path("1/.timings"));
    EXPECT_EQ(store.getJobState("r"), LegacyJobStates::open);
    EXPECT_EQ(store.getCommandLine("r"), "Not Run Yet");
    EXPECT_TRUE(store.getJobRecord(1).timings.empty());
    EXPECT_TRUE(fs::exists(folder.path("1/.partial")));
    EXPECT_FALSE(fs::exists(folder.path("1/.timings")));
}

TEST_F(LegacyJobStoreTest, CursorThatComesBackLeavesAJobToTheWorkerThatHasIt) {
    submit("failed");
    submit("open");
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 1u);
    finish(1, LegacyJobStates::error);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 2u);
    ASSERT_EQ(store.getJobState("open"), LegacyJobStates::open) << "its worker has not begun";
    submit("failed");
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 1u);
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 0u);

    store.requestDelete(2);
    submit("open");
    EXPECT_EQ(idOf(store.takeNextOpenJob()), 2u) << "sent again, it runs again";
}

TEST_F(LegacyJobStoreTest, JobThatCameBackKeepsItsMarkerFromTheWorkerThatRanItBefore) {
    submit("r");
    const auto first = store.takeNextOpenJob();
    ASSERT_TRUE(first);
    store.setJobState(first->record, LegacyJobStates::error);
    ASSERT_EQ(submit("r"), 1u);
    store.clearPartial(first->record, folder.path("1"));
    store.setJobState(first->record, LegacyJobStates::closed);
    store.setCommandLine(first->record, "old");
    EXPECT_TRUE(fs::exists(folder.path("1/.partial")));
    EXPECT_EQ(store.getJobState("r"), LegacyJobStates::open);
    EXPECT_EQ(store.getCommandLine("r"), "Not Run Yet");

    const auto second = store.takeNextOpenJob();
    ASSERT_TRUE(second);
    store.setJobState(second->record, LegacyJobStates::closed);
    store.clearPartial(second->record, folder.path("1"));
    EXPECT_FALSE(fs::exists(folder.path("1/.partial")));
    EXPECT_EQ(store.numJobsFinished(), 2u);
}

} // namespace
} // namespace OstrandService

#include "framework/JobFolder.h"

#include "platform/hub/FileSizeLimit.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace OstrandService {
namespace {

class JobFolderTest : public ::testing::Test {
protected:
    Support::TemporaryFolder folder;
};

TEST_F(JobFolderTest, MakesTheFolderWithItsDescription) {
    JobFolder::create(folder.path("7"), "{\"a\":1}");
    EXPECT_EQ(folder.read("7/.meta"), "{\"a\":1}");
}

TEST_F(JobFolderTest, MovesIntoAFolderThatIsThere) {
    folder.write("7/.meta", "a longer text that was there before");
    folder.write("7/other", "kept");
    JobFolder::create(folder.path("7"), "new");
    EXPECT_EQ(folder.read("7/.meta"), "new");
    EXPECT_EQ(folder.read("7/other"), "kept");
}

TEST_F(JobFolderTest, LeavesNoOtherJobsDescriptionWhereItCannotWriteItsOwn) {
    folder.write("7/.meta", "a stranger's");
    const FileSizeLimit full(0);
    JobFolder::create(folder.path("7"), "{}");
    EXPECT_FALSE(folder.has("7/.meta"));
}

TEST_F(JobFolderTest, TellsWhetherTheMarkerIsThereAndWhetherItHasGone) {
    EXPECT_TRUE(JobFolder::markPartial(folder.path()));
    EXPECT_TRUE(JobFolder::clearPartial(folder.path()));
    EXPECT_TRUE(JobFolder::clearPartial(folder.path())) << "it is not there";
    EXPECT_TRUE(JobFolder::clearPartial(folder.path("none")));
    EXPECT_FALSE(JobFolder::markPartial(folder.path("none")));
    // A folder in its place marks as well, and is removed if there is nothing in it.
    folder.makeFolder(".partial");
    EXPECT_TRUE(JobFolder::markPartial(folder.path()));
    EXPECT_TRUE(JobFolder::clearPartial(folder.path()));
    EXPECT_FALSE(folder.has(".partial"));
    folder.write(".partial/in the way", "");
    EXPECT_TRUE(JobFolder::markPartial(folder.path()));
    EXPECT_FALSE(JobFolder::clearPartial(folder.path()));
}

TEST_F(JobFolderTest, OnlyAFaultLeavesOpenWhetherSomethingExists) {
    folder.write("file", "");
    boost::filesystem::create_symlink("loop", folder.path("loop"));
    EXPECT_TRUE(JobFolder::mayExist(folder.path("file")));
    for (const std::string& name :
         {std::string("none"), std::string("none/.partial"), std::string("file/.partial"),
          std::string("loop/.partial"), std::string(300, 'x')})
        EXPECT_FALSE(JobFolder::mayExist(folder.path(name))) << name;
}

TEST_F(JobFolderTest, MakesOneLevelOnly) {
    JobFolder::create(folder.path("a/7"), "{}");
    EXPECT_FALSE(folder.has("a"));
}

TEST_F(JobFolderTest, WritesNothingWhereAFileIsInTheWay) {
    folder.write("7", "file");
    JobFolder::create(folder.path("7"), "{}");
    EXPECT_EQ(folder.read("7"), "file");
}

TEST_F(JobFolderTest, ReadsFilesAndNothingElse) {
    folder.write("file", "text");
    folder.makeFolder("sub");
    EXPECT_EQ(JobFolder::readText(folder.path("file")), "text");
    EXPECT_EQ(JobFolder::readText(folder.path("none")), "");
    EXPECT_EQ(JobFolder::readText(folder.path("sub")), "");
}

TEST_F(JobFolderTest, AnswersNoWhereTheDiskRefusesToTell) {
    folder.write("file", "text");
    EXPECT_TRUE(JobFolder::exists(folder.path("file")));
    EXPECT_TRUE(JobFolder::exists(folder.path()));
    EXPECT_FALSE(JobFolder::isFolder(folder.path("file")));
    EXPECT_TRUE(JobFolder::isFolder(folder.path()));
    for (const std::string& path :
         {folder.path("none"), folder.path("file/below"), folder.path(std::string(5000, 'x'))}) {
        EXPECT_FALSE(JobFolder::exists(path));
        EXPECT_FALSE(JobFolder::isFolder(path));
    }
    boost::filesystem::create_symlink("loop", folder.path("loop"));
    EXPECT_FALSE(JobFolder::exists(folder.path("loop")));
}

TEST_F(JobFolderTest, FollowsLinksToFolders) {
    folder.makeFolder("real");
    boost::filesystem::create_symlink("real", folder.path("link"));
    EXPECT_TRUE(JobFolder::isFolder(folder.path("link")));
}

// Opening a pipe for writing waits for its reader, and nobody reads these.
TEST_F(JobFolderTest, PipesOfTheFilesNamesStopNobody) {
    for (const char* name : {".partial", "jobId", ".cookie", "console.txt"})
        ASSERT_EQ(::mkfifo(folder.path(name).c_str(), 0600), 0);
    JobFolder::markPartial(folder.path());
    JobFolder::writeJobId(folder.path(), 1, "P");
    JobFolder::writeCookies(folder.path(), {{"a", "b"}});
    JobFolder::appendConsole(folder.path("console.txt"), "text");
    struct stat status {};
    for (const char* name : {".partial", "jobId", ".cookie", "console.txt"}) {
        ASSERT_EQ(::lstat(folder.path(name).c_str(), &status), 0);
        EXPECT_TRUE(S_ISFIFO(status.st_mode)) << name;
    }
}

TEST_F(JobFolderTest, CookiesAreForTheServicesUserAlone) {
    JobFolder::writeCookies(folder.path(), {{"a", "1"}, {"b", "2"}});
    EXPECT_EQ(folder.read(".cookie"), "a\n1\nb\n2\n");
    struct stat status {};
    ASSERT_EQ(::stat(folder.path(".cookie").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(JobFolderTest, ConsoleIsAppendedTo) {
    JobFolder::appendConsole(folder.path("console.txt"), "a");
    JobFolder::appendConsole(folder.path("console.txt"), "b");
    EXPECT_EQ(folder.read("console.txt"), "ab");
}

TEST_F(JobFolderTest, StateOfAFormerOwnerGoesWithTheNewDescription) {
    folder.write("7/.status", "{ \"status\" : 3 }\n");
    JobFolder::create(folder.path("7"), "{}");
    EXPECT_EQ(folder.read("7/.meta"), "{}");
    EXPECT_FALSE(folder.has("7/.status"));
}

} // namespace
} // namespace OstrandService

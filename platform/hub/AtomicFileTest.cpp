#include "platform/hub/AtomicFile.h"

#include "platform/hub/FileSizeLimit.h"
#include "platform/hub/TestFolder.h"

#include <atomic>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace {

using OstrandHub::writeFileAtomically;

TEST(AtomicFile, WritesAndReplaces) {
    const TestFolder folder;
    EXPECT_TRUE(writeFileAtomically(folder.path("f"), std::string("one\0", 4)));
    EXPECT_EQ(folder.read("f"), std::string("one\0", 4));
    EXPECT_TRUE(writeFileAtomically(folder.path("f"), ""));
    EXPECT_EQ(folder.read("f"), "");
    EXPECT_EQ(folder.size(), 1U);
}

TEST(AtomicFile, GivesTheRightsOfAnOrdinaryFile) {
    const TestFolder folder;
    const mode_t mask = ::umask(022);
    EXPECT_TRUE(writeFileAtomically(folder.path("f"), "x"));
    ::umask(mask);
    struct stat status {};
    ASSERT_EQ(::stat(folder.path("f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST(AtomicFile, TakesNamesAsLongAsNamesCanBe) {
    const TestFolder folder;
    const std::string name(255, 'n');
    EXPECT_TRUE(writeFileAtomically(folder.path(name), "x"));
    EXPECT_EQ(folder.read(name), "x");
}

TEST(AtomicFile, FailsWithoutTheFolder) {
    const TestFolder folder;
    EXPECT_FALSE(writeFileAtomically(folder.path("missing/f"), "x"));
    EXPECT_EQ(folder.size(), 0U);
}

TEST(AtomicFile, LeavesNothingBehindWhenItFails) {
    const TestFolder folder;
    std::filesystem::create_directory(folder.path("f"));
    EXPECT_FALSE(writeFileAtomically(folder.path("f"), "x"));
    EXPECT_TRUE(std::filesystem::is_directory(folder.path("f")));
    EXPECT_EQ(folder.size(), 1U);
}

TEST(AtomicFile, KeepsTheOldFileOnAFullDisk) {
    const TestFolder folder;
    EXPECT_TRUE(writeFileAtomically(folder.path("f"), "old"));
    {
        const FileSizeLimit full(1000);
        EXPECT_FALSE(writeFileAtomically(folder.path("f"), std::string(1001, 'x')));
    }
    EXPECT_EQ(folder.read("f"), "old");
    EXPECT_EQ(folder.size(), 1U);
}

TEST(AtomicFile, TwoWritersAndAReaderNeverSeeHalfAFile) {
    const TestFolder folder;
    const std::string path = folder.path("f");
    const std::string texts[] = {std::string(100000, 'a'), std::string(50000, 'b')};
    ASSERT_TRUE(writeFileAtomically(path, texts[0]));
    std::atomic<int> failures{0};
    std::vector<std::thread> writers;
    for (const std::string& text : texts) {
        writers.emplace_back([&] {
            for (int i = 0; i < 100; ++i)
                failures += writeFileAtomically(path, text) ? 0 : 1;
        });
    }
    for (int i = 0; i < 100; ++i) {
        const std::string seen = folder.read("f");
        ASSERT_TRUE(seen == texts[0] || seen == texts[1]) << seen.size();
    }
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(folder.size(), 1U);
}

TEST(OverwrittenFile, KeepsItsPlaceOnTheDisk) {
    const TestFolder folder;
    ASSERT_TRUE(writeFileAtomically(folder.path("f"), "state 1"));
    struct stat before {};
    ASSERT_EQ(::stat(folder.path("f").c_str(), &before), 0);
    EXPECT_TRUE(OstrandHub::overwriteFile(folder.path("f"), "state 3"));
    struct stat after {};
    ASSERT_EQ(::stat(folder.path("f").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(folder.read("f"), "state 3");
    EXPECT_EQ(folder.size(), 1U);
}

TEST(OverwrittenFile, IsOneOfTheSameSize) {
    const TestFolder folder;
    EXPECT_FALSE(OstrandHub::overwriteFile(folder.path("none"), "x"));
    ASSERT_TRUE(writeFileAtomically(folder.path("f"), "longer"));
    EXPECT_FALSE(OstrandHub::overwriteFile(folder.path("f"), "x"));
    EXPECT_EQ(folder.read("f"), "longer");
    std::filesystem::create_directory(folder.path("d"));
    EXPECT_FALSE(OstrandHub::overwriteFile(folder.path("d"), "x"));
    ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_FALSE(OstrandHub::overwriteFile(folder.path("pipe"), ""));
}

} // namespace

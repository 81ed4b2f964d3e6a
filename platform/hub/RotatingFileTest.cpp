#include "platform/hub/RotatingFile.h"

#include "platform/hub/FileSizeLimit.h"
#include "platform/hub/TestFolder.h"

#include <gtest/gtest.h>

namespace {

using OstrandService::RotatingFile;

RotatingFile::Limits limits(std::size_t bytes, std::size_t oldFiles) {
    RotatingFile::Limits result;
    result.bytes = bytes;
    result.oldFiles = oldFiles;
    return result;
}

bool startsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

TEST(RotatingFile, HeaderStandsOnceInANewFile) {
    const TestFolder folder;
    for (int run = 0; run < 2; ++run) {
        RotatingFile file(folder.path("f.csv"), ',', "time,x", limits(1000, 1));
        EXPECT_TRUE(file.write("1"));
        EXPECT_TRUE(file.write("2"));
    }
    const std::string text = folder.read("f.csv");
    EXPECT_TRUE(startsWith(text, "time,x\n")) << text;
    EXPECT_EQ(text.find("time", 1), std::string::npos);
    EXPECT_EQ(text.size(), 7U + 4 * 27);
}

TEST(RotatingFile, HeaderGoesIntoAnEmptyFile) {
    const TestFolder folder;
    folder.write("f.csv", "");
    RotatingFile file(folder.path("f.csv"), ',', "time,x", limits(1000, 1));
    EXPECT_TRUE(file.write("1"));
    EXPECT_TRUE(startsWith(folder.read("f.csv"), "time,x\n"));
}

TEST(RotatingFile, EachFreshFileStartsWithTheHeader) {
    const TestFolder folder;
    RotatingFile file(folder.path("f.csv"), ',', "time,x", limits(100, 2));
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(file.write(std::to_string(i)));
    for (const char* name : {"f.csv", "f.1.csv", "f.2.csv"})
        EXPECT_TRUE(startsWith(folder.read(name), "time,x\n")) << name;
    EXPECT_FALSE(folder.has("f.3.csv"));
}

TEST(RotatingFile, OpensNothingBeforeTheFirstLine) {
    const TestFolder folder;
    RotatingFile file(folder.path("f"), ' ', "", limits(100, 1));
    EXPECT_EQ(folder.size(), 0U);
}

TEST(RotatingFile, MakesNoFolder) {
    const TestFolder folder;
    RotatingFile file(folder.path("missing/f"), ' ', "", limits(100, 1));
    EXPECT_FALSE(file.write("x"));
    EXPECT_EQ(folder.size(), 0U);
}

TEST(RotatingFile, SurvivesTheLossOfItsFolder) {
    const TestFolder folder;
    std::filesystem::create_directory(folder.path("log"));
    RotatingFile file(folder.path("log/f"), ' ', "time,x", limits(100, 1));
    EXPECT_TRUE(file.write("x"));
    std::filesystem::remove_all(folder.path("log"));
    EXPECT_TRUE(file.write("y"));
    EXPECT_TRUE(startsWith(folder.read("log/f"), "time,x\n"));
    EXPECT_NE(folder.read("log/f").find(" y\n"), std::string::npos);
}

TEST(RotatingFile, BeginsAnewWhenItsFileIsMovedAway) {
    const TestFolder folder;
    RotatingFile file(folder.path("f"), ' ', "", limits(1000, 1));
    EXPECT_TRUE(file.write("before"));
    std::filesystem::rename(folder.path("f"), folder.path("old"));
    EXPECT_TRUE(file.write("after"));
    EXPECT_EQ(folder.read("old").find("after"), std::string::npos);
    EXPECT_NE(folder.read("f").find(" after\n"), std::string::npos);
}

TEST(RotatingFile, TellsWhyALineIsLost) {
    const TestFolder folder;
    RotatingFile file(folder.path("missing/f"), ' ', "", limits(100, 1));
    EXPECT_FALSE(file.write("x"));
    EXPECT_EQ(file.problem(), "No such file or directory");
    std::filesystem::create_directory(folder.path("missing"));
    EXPECT_TRUE(file.write("x"));
    EXPECT_EQ(file.problem(), "");
}

TEST(RotatingFile, FullDiskIsNoExceptionAndWritingGoesOnAfterIt) {
    const TestFolder folder;
    RotatingFile file(folder.path("f"), ' ', "", limits(10000, 1));
    EXPECT_TRUE(file.write("before"));
    {
        const FileSizeLimit full(50);
        EXPECT_FALSE(file.write("lost"));
        EXPECT_FALSE(file.write("lost"));
    }
    EXPECT_TRUE(file.write("after"));
    EXPECT_NE(folder.read("f").find(" after\n"), std::string::npos);
}

TEST(RotatingFile, WritesToRegularFilesOnly) {
    const TestFolder folder;
    std::filesystem::create_symlink("/dev/null", folder.path("f"));
    RotatingFile file(folder.path("f"), ' ', "", limits(100, 1));
    EXPECT_FALSE(file.write("x"));
    EXPECT_EQ(file.problem(), "no regular file");
}

} // namespace

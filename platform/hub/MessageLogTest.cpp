#include "platform/hub/MessageLog.h"

#include "platform/hub/TestFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <thread>

namespace {

using OstrandService::MessageLog;

std::size_t lineCount(const std::string& text) {
    std::size_t count = 0;
    for (const char c : text)
        count += c == '\n' ? 1U : 0U;
    return count;
}

TEST(MessageLog, WritesTimeAndTextOfEachLineThrough) {
    const TestLog log;
    MessageLog::the()->log(std::string("first"));
    MessageLog::the()->log("second");
    MessageLog::the()->log("");
    EXPECT_TRUE(std::regex_match(log.folder.read("messages.log"),
                                 std::regex("(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z "
                                            "(first|second|)\n){3}")))
        << log.folder.read("messages.log");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"first", "second", ""}));
}

TEST(MessageLog, TimeIsUtc) {
    ::setenv("TZ", "Asia/Tokyo", 1);
    ::tzset();
    const TestLog log;
    const std::time_t before = std::time(nullptr);
    MessageLog::the()->log("x");
    const std::time_t after = std::time(nullptr);
    std::tm written{};
    ASSERT_NE(::strptime(log.folder.read("messages.log").c_str(), "%Y-%m-%dT%H:%M:%S", &written),
              nullptr);
    const std::time_t time = ::timegm(&written);
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
    ::unsetenv("TZ");
    ::tzset();
}

TEST(MessageLog, TextIsData) {
    const TestLog log;
    MessageLog::the()->log("{} {0} %s %v %n %%");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"{} {0} %s %v %n %%"});
}

TEST(MessageLog, LineEndsInATextMakeNoLine) {
    const TestLog log;
    MessageLog::the()->log("a\nb\r\nc\\n");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"a\\nb\\r\\nc\\n"});
}

TEST(MessageLog, TellsTheFolderThatWasSetLast) {
    EXPECT_EQ(MessageLog::getLogPath(), "");
    MessageLog::setLogPath("/one");
    MessageLog::setLogPath("/two");
    EXPECT_EQ(MessageLog::getLogPath(), "/two");
    MessageLog::setLogPath("");
}

TEST(MessageLog, SettingThePathMakesNothing) {
    const TestFolder folder;
    MessageLog::setLogPath(folder.path("log"));
    MessageLog::setLogPath(folder.path());
    EXPECT_EQ(folder.size(), 0U);
    MessageLog::setLogPath("");
}

TEST(MessageLog, IsSilentWithoutItsFolderAndTriesAgain) {
    const TestFolder folder;
    MessageLog::setLogPath(folder.path("log"));
    MessageLog::the()->log("lost");
    EXPECT_EQ(folder.size(), 0U);
    std::filesystem::create_directory(folder.path("log"));
    MessageLog::the()->log("kept");
    EXPECT_EQ(lineCount(folder.read("log/messages.log")), 1U);
    MessageLog::setLogPath("");
}

TEST(MessageLog, IsSilentWhereNoFileCanBe) {
    const TestLog log;
    std::filesystem::create_directory(log.folder.path("messages.log"));
    MessageLog::the()->log("lost");
    std::filesystem::remove(log.folder.path("messages.log"));
    ASSERT_EQ(::mkfifo(log.folder.path("messages.log").c_str(), 0600), 0);
    MessageLog::the()->log("lost too, and waits for no reader");
    std::filesystem::remove(log.folder.path("messages.log"));
    MessageLog::the()->log("kept");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"kept"});
}

TEST(MessageLog, GoesOnInTheNewFolder) {
    const TestFolder other;
    const TestLog log;
    MessageLog::the()->log("here");
    MessageLog::setLogPath(other.path());
    MessageLog::the()->log("there");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"here"});
    EXPECT_EQ(lineCount(other.read("messages.log")), 1U);
}

TEST(MessageLog, AppendsToTheLogOfAnEarlierRun) {
    const TestFolder other;
    const TestLog log;
    MessageLog::the()->log("one");
    MessageLog::setLogPath(other.path());
    MessageLog::setLogPath(log.folder.path());
    MessageLog::the()->log("two");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"one", "two"}));
}

TEST(MessageLog, IsRotatedAtTenMiBAndKeepsFiveOldFiles) {
    const TestLog log;
    const std::string text(1024 * 1024 - 26, 'x'); // with time and line end one MiB
    for (int i = 0; i < 10; ++i)
        MessageLog::the()->log(text);
    EXPECT_FALSE(log.folder.has("messages.1.log"));
    for (int i = 0; i < 60; ++i)
        MessageLog::the()->log(text);
    for (const char* name : {"messages.log", "messages.1.log", "messages.5.log"})
        EXPECT_EQ(std::filesystem::file_size(log.folder.path(name)), 10U * 1024 * 1024) << name;
    EXPECT_EQ(log.folder.size(), 6U);
}

TEST(MessageLog, LinesOfManyThreadsStayWhole) {
    const TestLog log;
    constexpr int threads = 8;
    constexpr int each = 200;
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < each; ++i)
                MessageLog::the()->log("line " + std::to_string(t * each + i));
        });
    }
    for (std::thread& writer : writers)
        writer.join();
    const std::vector<std::string> lines = log.lines();
    std::set<std::string> expected;
    for (int i = 0; i < threads * each; ++i)
        expected.insert("line " + std::to_string(i));
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
}

TEST(MessageLog, FileIsNotInheritedByTools) {
    const TestLog log;
    MessageLog::the()->log("opened");
    std::size_t found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone) != log.folder.path("messages.log"))
            continue;
        ++found;
        std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
        std::string label;
        unsigned flags = 0;
        while (info >> label && label != "flags:")
            continue;
        info >> std::oct >> flags;
        EXPECT_NE(flags & 02000000U, 0U) << "not closed on exec";
    }
    EXPECT_EQ(found, 1U);
}

TEST(MessageLog, LostLinesAreToldOnStandardErrorOnce) {
    const TestFolder folder;
    const std::string path = folder.path("log");
    std::filesystem::create_directory(path);
    MessageLog::setLogPath(path);
    testing::internal::CaptureStderr();
    MessageLog::the()->log("x");
    std::filesystem::remove_all(path);
    folder.write("log", "in the place of the folder");
    MessageLog::the()->log("x");
    MessageLog::the()->log("x");
    MessageLog::setLogPath("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot write the log " + path + "/messages.log: Not a directory\n");
}

TEST(MessageLog, OneThatNeverBeganIsSilent) {
    const TestFolder folder;
    MessageLog::setLogPath(folder.path("missing"));
    testing::internal::CaptureStderr();
    MessageLog::the()->log("x");
    std::filesystem::create_directory(folder.path("missing"));
    MessageLog::the()->log("y");
    MessageLog::setLogPath("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(folder.read("missing/messages.log").find("Z y\n"), std::string::npos);
}

} // namespace

#include "platform/hub/SystemInfo.h"

#include "platform/hub/TestFolder.h"

#include <gtest/gtest.h>
#include <locale>
#include <regex>

namespace {

const std::string header = "time,cpu_percent,load1,mem_used_kib,mem_total_kib,rss_kib\n";
const std::string row = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z,\d+\.\d,\d+\.\d\d,\d+,\d+,\d+\n)";

std::string csv(const TestLog& log) {
    return log.folder.read("systeminfo.csv");
}

TEST(SystemInfo, WritesARowASample) {
    const TestLog log;
    SystemInfo info;
    for (int i = 0; i < 3; ++i) {
        info.update();
        info.update_csv_log();
    }
    EXPECT_TRUE(std::regex_match(csv(log), std::regex(header + "(" + row + "){3}"))) << csv(log);
}

TEST(SystemInfo, FirstSampleHasNoLoadYet) {
    const TestLog log;
    SystemInfo info;
    info.update();
    info.update_csv_log();
    EXPECT_TRUE(std::regex_search(csv(log), std::regex("Z,0\\.0,"))) << csv(log);
}

TEST(SystemInfo, RestartAppends) {
    const TestLog log;
    for (int run = 0; run < 2; ++run) {
        SystemInfo info;
        info.update();
        info.update_csv_log();
        info.close();
    }
    EXPECT_TRUE(std::regex_match(csv(log), std::regex(header + "(" + row + "){2}"))) << csv(log);
}

TEST(SystemInfo, FolderIsTheLogsAtTheFirstRow) {
    const TestFolder early;
    OstrandService::MessageLog::setLogPath(early.path());
    SystemInfo info;
    info.update();
    const TestLog log;
    info.update_csv_log();
    const TestFolder late;
    OstrandService::MessageLog::setLogPath(late.path());
    info.update();
    info.update_csv_log();
    EXPECT_EQ(early.size(), 0U);
    EXPECT_EQ(late.size(), 0U);
    EXPECT_TRUE(std::regex_match(csv(log), std::regex(header + "(" + row + "){2}"))) << csv(log);
}

TEST(SystemInfo, IsSilentWithoutAFolderOrASample) {
    const TestFolder folder;
    OstrandService::MessageLog::setLogPath("");
    SystemInfo info;
    info.update_csv_log();
    info.update();
    info.update_csv_log();
    OstrandService::MessageLog::setLogPath(folder.path("missing"));
    info.update_csv_log();
    EXPECT_EQ(folder.size(), 0U);
    OstrandService::MessageLog::setLogPath("");
}

TEST(SystemInfo, CloseEndsTheLogAndMayComeTwice) {
    const TestLog log;
    SystemInfo info;
    info.update();
    info.update_csv_log();
    const std::string before = csv(log);
    info.close();
    info.close();
    info.update();
    info.update_csv_log();
    EXPECT_EQ(csv(log), before);
}

/// Groups of three digits and a comma for the point, as some languages have it.
class Punctuation : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(SystemInfo, RowsDoNotDependOnTheGlobalLocale) {
    const TestLog log;
    const std::locale before =
        std::locale::global(std::locale(std::locale::classic(), new Punctuation));
    SystemInfo info;
    info.update();
    info.update_csv_log();
    std::locale::global(before);
    EXPECT_TRUE(std::regex_match(csv(log), std::regex(header + row))) << csv(log);
}

} // namespace

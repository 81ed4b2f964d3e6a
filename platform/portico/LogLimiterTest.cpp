#include "platform/portico/LogLimiter.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Portico {
namespace {

using Lines = std::vector<std::string>;

struct LogLimiterTest : testing::Test {
    LogLimiter::Clock::time_point at(int seconds) const {
        return LogLimiter::Clock::time_point() + std::chrono::hours(1) +
               std::chrono::seconds(seconds);
    }
    Lines lines;
};

TEST_F(LogLimiterTest, countsWhatIsBeyondTheLimit) {
    LogLimiter log(2, [this](const std::string& line) { lines.push_back(line); });
    for (int i = 0; i < 5; ++i)
        log.line(std::to_string(i), at(i));
    EXPECT_EQ(lines, (Lines{"0", "1"}));
    log.line("next", at(60));
    EXPECT_EQ(lines, (Lines{"0", "1", "web server: 3 more lines left out", "next"}));
}

TEST_F(LogLimiterTest, tellsTheCountWhenTheMinuteIsOver) {
    LogLimiter log(1, [this](const std::string& line) { lines.push_back(line); });
    log.line("a", at(0));
    log.line("b", at(1));
    log.flush(false, at(59));
    EXPECT_EQ(lines, (Lines{"a"}));
    log.flush(false, at(61));
    log.flush(false, at(62));
    EXPECT_EQ(lines, (Lines{"a", "web server: 1 more lines left out"}));
}

TEST_F(LogLimiterTest, tellsTheCountAtTheEnd) {
    LogLimiter log(0, [this](const std::string& line) { lines.push_back(line); });
    log.line("a", at(0));
    log.flush(true, at(1));
    log.flush(true, at(2));
    EXPECT_EQ(lines, (Lines{"web server: 1 more lines left out"}));
}

TEST_F(LogLimiterTest, passesTextAsItIs) {
    LogLimiter log(9, [this](const std::string& line) { lines.push_back(line); });
    log.line("%s {} %n", at(0));
    EXPECT_EQ(lines, (Lines{"%s {} %n"}));
}

} // namespace
} // namespace Portico

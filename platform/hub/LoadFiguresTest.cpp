#include "platform/hub/LoadFigures.h"

#include <clocale>
#include <gtest/gtest.h>

namespace {

using OstrandHub::cpuPercent;
using OstrandHub::LoadFigures;
using OstrandHub::parseLoadFigures;

LoadFigures ticks(std::uint64_t busy, std::uint64_t total) {
    LoadFigures figures;
    figures.busyTicks = busy;
    figures.totalTicks = total;
    return figures;
}

TEST(LoadFigures, ReadsTheKernelsTexts) {
    const LoadFigures figures = parseLoadFigures(
        "cpu  100 20 30 400 50 6 7 8 90 10\ncpu0 1 1 1 1\n", "0.52 0.58 0.59 1/467 12345\n",
        "MemTotal:       16000 kB\nMemFree:         1000 kB\nMemAvailable:    6000 kB\n",
        "5000 300 200 10 0 600 0\n", 4);
    EXPECT_EQ(figures.totalTicks, 621U); // the guests' time is part of the users'
    EXPECT_EQ(figures.busyTicks, 171U);
    EXPECT_DOUBLE_EQ(figures.load1, 0.52);
    EXPECT_EQ(figures.memTotalKib, 16000U);
    EXPECT_EQ(figures.memUsedKib, 10000U);
    EXPECT_EQ(figures.rssKib, 1200U);
}

TEST(LoadFigures, OtherTextsGiveZeros) {
    for (const char* text : {"", "garbage", "cpu x", "MemTotal: x\nMemAvailable: 5 kB"}) {
        const LoadFigures figures = parseLoadFigures(text, text, text, text, 4);
        EXPECT_EQ(figures.totalTicks, 0U) << text;
        EXPECT_EQ(figures.load1, 0) << text;
        EXPECT_EQ(figures.memUsedKib, 0U) << text;
        EXPECT_EQ(figures.memTotalKib, 0U) << text;
        EXPECT_EQ(figures.rssKib, 0U) << text;
    }
}

TEST(LoadFigures, CpuIsTheShareOfTheInterval) {
    EXPECT_DOUBLE_EQ(cpuPercent(ticks(100, 1000), ticks(150, 1200)), 25);
    EXPECT_DOUBLE_EQ(cpuPercent(ticks(100, 1000), ticks(300, 1200)), 100);
    EXPECT_DOUBLE_EQ(cpuPercent(ticks(100, 1000), ticks(100, 1200)), 0);
}

TEST(LoadFigures, CpuIsAlwaysANumberInRange) {
    EXPECT_EQ(cpuPercent(ticks(100, 1000), ticks(100, 1000)), 0);
    EXPECT_EQ(cpuPercent(ticks(100, 1000), ticks(110, 1000)), 0);
    EXPECT_EQ(cpuPercent(ticks(100, 1000), ticks(90, 990)), 0);
    EXPECT_EQ(cpuPercent(ticks(100, 1000), ticks(200, 1050)), 100);
}

TEST(LoadFigures, ReadsThisMachine) {
    const LoadFigures figures = OstrandHub::readLoadFigures();
    EXPECT_GT(figures.totalTicks, 0U);
    EXPECT_LE(figures.busyTicks, figures.totalTicks);
    EXPECT_GT(figures.memTotalKib, 0U);
    EXPECT_LE(figures.memUsedKib, figures.memTotalKib);
    EXPECT_GT(figures.rssKib, 0U);
}

} // namespace

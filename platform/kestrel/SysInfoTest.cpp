#include "platform/kestrel/SysInfo.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <thread>

namespace Kestrel {

TEST(SysInfoTest, IsOneObject) {
    EXPECT_EQ(&SysInfo::the(), &SysInfo::the());
}

TEST(SysInfoTest, TellsWhatTheKernelTells) {
    utsname kernel = {};
    ASSERT_EQ(::uname(&kernel), 0);
    EXPECT_EQ(SysInfo::the().hostName(), kernel.nodename);
    EXPECT_EQ(SysInfo::the().machineType, kernel.machine);
    EXPECT_GE(SysInfo::the().numCpus, 1U);
    EXPECT_LE(SysInfo::the().numCpus, 65536U);
}

TEST(SysInfoTest, SystemNameFitsIntoAQuotedText) {
    EXPECT_FALSE(SysInfo::the().osName.empty());
    EXPECT_EQ(SysInfo::the().osName.find_first_of("\"\\\n"), std::string::npos);
}

TEST(SysInfoTest, PrettyNameIsTakenWithoutQuotes) {
    EXPECT_EQ(SysInfo::prettyName("NAME=\"Some\"\nPRETTY_NAME=\"Some System 12 (x)\"\nID=s\n"),
              "Some System 12 (x)");
    EXPECT_EQ(SysInfo::prettyName("PRETTY_NAME='Single 1'\n"), "Single 1");
    EXPECT_EQ(SysInfo::prettyName("PRETTY_NAME=Plain"), "Plain");
    EXPECT_EQ(SysInfo::prettyName("PRETTY_NAME=\"Line End\"\r\n"), "Line End");
    EXPECT_EQ(SysInfo::prettyName("PRETTY_NAME=A\nPRETTY_NAME=B\n"), "B");
}

TEST(SysInfoTest, MissingOrMalformedPrettyNameIsEmpty) {
    EXPECT_EQ(SysInfo::prettyName(""), "");
    EXPECT_EQ(SysInfo::prettyName("NAME=x\n#PRETTY_NAME=y\n"), "");
    EXPECT_EQ(SysInfo::prettyName("PRETTY_NAME=\"open\n"), "");
    EXPECT_EQ(SysInfo::prettyName("PRETTY_NAME=\n"), "");
}

} // namespace Kestrel

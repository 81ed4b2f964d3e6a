#include "framework/ToolEnvironment.h"

#include "platform/hub/TranscoderJobDesc.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

class ToolEnvironmentTest : public ::testing::Test {
protected:
    ToolEnvironmentTest()
        : env{{"A", "1"}, {cookieVariable, "sid=2"}, {deliveryHostVariable, "http://h:1"}} {}
    ~ToolEnvironmentTest() override {
        TranscoderJobDesc::cookieAwareCmds.clear();
        TranscoderJobDesc::env_whitelist.clear();
    }

    const EnvironmentList env;
};

TEST_F(ToolEnvironmentTest, KeepsCookiesAndHostFromToolsThatDoNotAsk) {
    EXPECT_EQ(toolEnvironment("tool x", env), (EnvironmentList{{"A", "1"}}));
    EXPECT_EQ(toolEnvironment("tool x", {}), EnvironmentList());
}

TEST_F(ToolEnvironmentTest, GivesCookiesToAwareProgramsOnly) {
    TranscoderJobDesc::cookieAwareCmds = {"tool", "two words"};
    const EnvironmentList with{{"A", "1"}, {cookieVariable, "sid=2"}};
    const EnvironmentList without{{"A", "1"}};
    EXPECT_EQ(toolEnvironment("tool x", env), with);
    EXPECT_EQ(toolEnvironment("  \"to\"ol", env), with);
    EXPECT_EQ(toolEnvironment("'two words' x", env), with);
    EXPECT_EQ(toolEnvironment("tool2 x", env), without);
    EXPECT_EQ(toolEnvironment("/bin/tool x", env), without);
    EXPECT_EQ(toolEnvironment("x tool", env), without);
    EXPECT_EQ(toolEnvironment("", env), without);
    EXPECT_EQ(toolEnvironment("\"tool", env), without);
}

TEST_F(ToolEnvironmentTest, GivesTheHostWhereTheWhitelistNamesIt) {
    TranscoderJobDesc::env_whitelist = {deliveryHostVariable};
    EXPECT_EQ(toolEnvironment("tool", env),
              (EnvironmentList{{"A", "1"}, {deliveryHostVariable, "http://h:1"}}));
}

} // namespace
} // namespace OstrandService

#include "platform/hub/Json.h"
#include "platform/hub/TestFolder.h"
#include "platform/hub/TranscoderJobDesc.h"

#include <gtest/gtest.h>

namespace {

using OstrandService::TranscoderJobDesc;
using Set = std::unordered_set<std::string>;

/// Read before main, by whatever order the linker chose.
const std::size_t programsBeforeMain = TranscoderJobDesc::cmd_whitelist.size();

class TranscoderConfig : public testing::Test {
protected:
    ~TranscoderConfig() override {
        TranscoderJobDesc::cmd_whitelist = {"fettle", "fettle.exe", "glimt"};
        TranscoderJobDesc::env_whitelist.clear();
        TranscoderJobDesc::cookie_whitelist.clear();
        TranscoderJobDesc::cookieAwareCmds.clear();
    }

    static void init(const std::string& text, bool replace) {
        picojson::value value;
        ASSERT_TRUE(OstrandHub::parseJson(text, value));
        TranscoderJobDesc::initFrom(value, replace);
    }

    const TestLog log;
    const Set defaults{"fettle", "fettle.exe", "glimt"};
};

TEST_F(TranscoderConfig, DefaultsAreThereBeforeMain) {
    EXPECT_EQ(programsBeforeMain, 3U);
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, defaults);
    EXPECT_TRUE(TranscoderJobDesc::env_whitelist.empty());
    EXPECT_TRUE(TranscoderJobDesc::cookie_whitelist.empty());
    EXPECT_TRUE(TranscoderJobDesc::cookieAwareCmds.empty());
}

TEST_F(TranscoderConfig, KeysReplaceTheirSets) {
    init(R"({"commandWhitelist":["a","b","a"],"envWhitelist":["E"],"cookieWhitelist":["sid"],
             "cookieAwareCommands":["c"],"other":1})",
         true);
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, (Set{"a", "b"}));
    EXPECT_EQ(TranscoderJobDesc::env_whitelist, Set{"E"});
    EXPECT_EQ(TranscoderJobDesc::cookie_whitelist, Set{"sid"});
    EXPECT_EQ(TranscoderJobDesc::cookieAwareCmds, Set{"c"});
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(TranscoderConfig, AbsentKeysLeaveTheirSets) {
    init("{}", true);
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, defaults);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(TranscoderConfig, EmptyListEmptiesTheSet) {
    init(R"({"commandWhitelist":[]})", true);
    EXPECT_TRUE(TranscoderJobDesc::cmd_whitelist.empty());
}

TEST_F(TranscoderConfig, AddsWhereNotToReplace) {
    init(R"({"commandWhitelist":["a"],"envWhitelist":["E"]})", false);
    init(R"({"envWhitelist":["F"]})", false);
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, (Set{"fettle", "fettle.exe", "glimt", "a"}));
    EXPECT_EQ(TranscoderJobDesc::env_whitelist, (Set{"E", "F"}));
}

TEST_F(TranscoderConfig, ValueOfAnotherTypeLeavesTheSetAndIsLogged) {
    init(R"({"commandWhitelist":"a","envWhitelist":null,"cookieWhitelist":{},
             "cookieAwareCommands":1})",
         true);
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, defaults);
    EXPECT_TRUE(TranscoderJobDesc::env_whitelist.empty());
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "transcoder config: commandWhitelist is no list of strings",
                               "transcoder config: envWhitelist is no list of strings",
                               "transcoder config: cookieWhitelist is no list of strings",
                               "transcoder config: cookieAwareCommands is no list of strings"}));
}

TEST_F(TranscoderConfig, ElementThatIsNoStringIsSkippedAndLogged) {
    init(R"({"envWhitelist":["A",1,"B"]})", true);
    EXPECT_EQ(TranscoderJobDesc::env_whitelist, (Set{"A", "B"}));
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"transcoder config: envWhitelist is no list of strings"});
}

TEST_F(TranscoderConfig, OtherValuesThanObjectsChangeNothing) {
    for (const char* text : {"[]", "null", "\"commandWhitelist\""})
        init(text, true);
    EXPECT_EQ(TranscoderJobDesc::cmd_whitelist, defaults);
}

} // namespace

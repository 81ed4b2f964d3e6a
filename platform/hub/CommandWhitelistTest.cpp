#include "platform/hub/Json.h"
#include "platform/hub/TestFolder.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "platform/kestrel/CommandLine.h"

#include <gtest/gtest.h>

// Ways to start a program that is not listed, each of which must be refused, and next to them the
// forms that are allowed, so that it shows where the border is.

namespace OstrandService {
namespace {

class CommandWhitelistTest : public testing::TestWithParam<std::string> {
protected:
    CommandWhitelistTest() {
        TranscoderJobDesc::cmd_whitelist = {"tool", "tool.sh", "two words", "/opt/tool", "sub/it"};
    }
    ~CommandWhitelistTest() override {
        TranscoderJobDesc::cmd_whitelist = {"fettle", "fettle.exe", "glimt"};
        TranscoderJobDesc::env_whitelist.clear();
    }

    static TranscoderJobDesc parsed(const picojson::value& commands) {
        const picojson::object fields{{"uid", picojson::value("u")}, {"commands", commands}};
        TranscoderJobDesc desc("");
        desc.parse(picojson::value(fields));
        return desc;
    }

    static picojson::value listOf(const std::vector<std::string>& lines) {
        picojson::array list;
        for (const std::string& line : lines)
            list.emplace_back(line);
        return picojson::value(list);
    }

    static bool allows(const std::string& line) { return parsed(listOf({line})).valid; }

    static picojson::value json(const std::string& text) {
        picojson::value value;
        EXPECT_TRUE(OstrandHub::parseJson(text, value)) << text;
        return value;
    }

    const TestLog log;
};

const std::string zero(1, '\0');

class RefusedLine : public CommandWhitelistTest {};

TEST_P(RefusedLine, IsRefusedWhereverItStands) {
    EXPECT_FALSE(allows(GetParam()));
    EXPECT_FALSE(parsed(listOf({"tool", GetParam()})).valid);
    EXPECT_FALSE(parsed(listOf({GetParam(), "tool"})).valid);
    const picojson::array pair{picojson::value(GetParam()), picojson::value("tool")};
    EXPECT_FALSE(parsed(picojson::value(picojson::array{picojson::value(pair)})).valid);
}

INSTANTIATE_TEST_SUITE_P(NoProgram, RefusedLine,
                         testing::Values("", " ", "\t\r\n", "''", "\"\"", "'' tool", "\"\"  tool"));

INSTANTIATE_TEST_SUITE_P(Quoting, RefusedLine,
                         testing::Values("'tool", "\"tool", "tool'", "tool\"", "tool \\", "\\",
                                         "'tool x'", "\"tool x\"", "tool\\ x", "'tool '", "' tool'",
                                         "\"'tool'\"", "'\"tool\"'", "\\'tool\\'", "\\\"tool\\\"",
                                         "\\\\tool", "'\\tool'", "\"\\tool\"", "tool''2",
                                         "\"\"evil", "two words", "'two  words'", "'two' words",
                                         "$'tool'", "`tool`", "\\\ntool", "'tool\n'",
                                         "\"tool\\\\\""));

INSTANTIATE_TEST_SUITE_P(OtherNames, RefusedLine,
                         testing::Values("evil", "too", "tool2", "tool.", "tool.sh2", "tool.exe",
                                         "Tool", "TOOL", "tOOl", "evil tool", "*", "?ool", "t*l",
                                         "[t]ool", "{tool,evil}", "~/tool", "-tool", "--", "loot",
                                         "tool,evil", "tool:evil", "tool=evil", "A=b tool",
                                         "PATH=/tmp tool", "env tool", "sh -c tool", "exec tool",
                                         "sudo tool", "nice tool", ". tool", "! tool"));

INSTANTIATE_TEST_SUITE_P(Paths, RefusedLine,
                         testing::Values("./tool", "../tool", "../bin/tool", "/tmp/tool", "/tool",
                                         "tool/", "/opt/tool/", "/opt//tool", "//opt/tool",
                                         "/opt/./tool", "/opt/x/../tool", "/OPT/tool", "opt/tool",
                                         "./sub/it", "sub//it", "sub/./it", "sub/../sub/it", "it",
                                         "tool/../evil", "/proc/self/exe", "bin/tool", "/opt/tool2",
                                         "file:///opt/tool"));

INSTANTIATE_TEST_SUITE_P(WindowsForms, RefusedLine,
                         testing::Values("\\opt\\tool", "C:\\tool", "C:tool", ".\\tool",
                                         "bin\\tool", "\"bin\\tool\"", "tool.com", "tool.bat",
                                         "tool.sh.exe", "^tool", "%COMSPEC%", "tool::$DATA"));

// Only blanks, tabs, line feeds and carriage returns separate; whatever else looks like nothing is
// a character of the name.
INSTANTIATE_TEST_SUITE_P(Blanks, RefusedLine,
                         testing::Values("\vtool", "tool\v", "\ftool", "tool\f", "tool\vx",
                                         "tool\b", "\x7ftool", "\x1btool", "\xc2\xa0tool",
                                         "tool\xc2\xa0", "tool\xc2\xa0x", "\xe2\x80\x8btool",
                                         "tool\xe2\x80\x8b", "\xef\xbb\xbftool", "\xe2\x80\xa8tool",
                                         "tool\xe3\x80\x80x", "\xe2\x80\xaetool", "\xc2\x85tool"));

INSTANTIATE_TEST_SUITE_P(ZeroBytes, RefusedLine,
                         testing::Values(zero, zero + "tool", "tool" + zero, "tool" + zero + "evil",
                                         "tool" + zero + " x", "'tool" + zero + "'",
                                         "/opt/tool" + zero + "evil", "evil" + zero + "tool"));

INSTANTIATE_TEST_SUITE_P(Bytes, RefusedLine,
                         testing::Values("\xc1\xb4ool", "\xe0\x81\xb4ool", "\xf0\x80\x81\xb4ool",
                                         "\xff\xfetool", "\xef\xbd\x94ool", "t\xcc\x88ool",
                                         "\xd1\x82ool", "\xed\xa0\xbdtool", "tool\x80"));

INSTANTIATE_TEST_SUITE_P(ShellWords, RefusedLine,
                         testing::Values("tool;", "tool;evil", "tool|evil", "tool&evil", "tool&&",
                                         "(tool)", "$(tool)", "tool>x", "<tool", "tool#", "#tool",
                                         "$tool", "${tool}", "tool\\;evil", "tool\\\nevil"));

class AllowedLine : public CommandWhitelistTest {};

TEST_P(AllowedLine, IsAllowed) {
    EXPECT_TRUE(allows(GetParam()));
}

// Behind the program everything is the tool's own, and no shell ever sees it.
INSTANTIATE_TEST_SUITE_P(All, AllowedLine,
                         testing::Values("tool", " tool", "\ttool", "\r\ntool", "tool\nevil",
                                         "tool\revil", "tool evil", "tool ; evil", "tool | evil",
                                         "tool & evil", "tool $(evil) `evil`", "tool > x",
                                         "tool ''", "'tool'", "\"tool\"", "t'oo'l", "\"to\"'ol'",
                                         "''tool", "tool\"\"", "\\tool", "to\\ol", "tool.sh",
                                         "'two words'", "two\\ words", "\"two words\" x",
                                         "/opt/tool", "'/opt'/tool", "sub/it", "tool x" + zero));

TEST_F(CommandWhitelistTest, OneBadLineAmongManyRefusesAll) {
    std::vector<std::string> lines(20000, "tool x");
    EXPECT_TRUE(parsed(listOf(lines)).valid);
    lines[19998] = "evil";
    EXPECT_FALSE(parsed(listOf(lines)).valid);
}

TEST_F(CommandWhitelistTest, LongWordsAreComparedToTheirEnd) {
    const std::string longName(1 << 20, 'a');
    TranscoderJobDesc::cmd_whitelist = {longName};
    EXPECT_TRUE(allows(longName));
    EXPECT_TRUE(allows("'" + longName + "' x"));
    EXPECT_FALSE(allows(longName + "a"));
    EXPECT_FALSE(allows(longName.substr(1)));
    EXPECT_FALSE(allows("'" + longName));
    EXPECT_FALSE(allows(std::string(1 << 20, '\'') + "'"));
    EXPECT_FALSE(allows(std::string(1 << 20, ' ')));
}

TEST_F(CommandWhitelistTest, EntriesAreTakenAsTheyStand) {
    TranscoderJobDesc::cmd_whitelist = {"to*", " tool", "tool x", "\"tool\"", "", "tool\n", ".*"};
    for (const char* line : {"tool", "tool x", "\"tool\"", "too", ""})
        EXPECT_FALSE(allows(line)) << line;
    for (const char* line : {"to*", "' tool'", "'tool x'", "\\\"tool\\\"", "''", "'tool\n'", ".*"})
        EXPECT_TRUE(allows(line)) << line;
}

// The last of equal keys counts, for the check as for the run.
TEST_F(CommandWhitelistTest, RepeatedKeysAreCheckedAsTheyAreRun) {
    TranscoderJobDesc desc("");
    desc.parse(json(R"({"uid":"u","commands":["tool"],"commands":["evil"]})"));
    EXPECT_FALSE(desc.valid);
    desc.parse(json(R"({"uid":"u","commands":["evil"],"commands":["tool"]})"));
    ASSERT_TRUE(desc.valid);
    ASSERT_EQ(desc.commands.size(), 1u);
    EXPECT_EQ(desc.commands[0].line, "tool");
    desc.parse(json(R"({"uid":"u","commands":["tool"],"Commands":["evil"],"commands ":["evil"]})"));
    ASSERT_TRUE(desc.valid);
    EXPECT_EQ(desc.commands.size(), 1u);
}

TEST_F(CommandWhitelistTest, EscapesOfJsonHideNothing) {
    TranscoderJobDesc desc("");
    desc.parse(json(R"({"uid":"u","commands":["\u0074ool"]})"));
    EXPECT_TRUE(desc.valid);
    for (const char* line : {R"(tool\u0000)", R"(tool\u0000evil)", R"(\u0000tool)", R"(\u0065vil)",
                             R"(tool\u00a0)", R"(\uff54ool)", R"(tool\/..\/evil)", R"(\b\btool)"}) {
        desc.parse(json(std::string(R"({"uid":"u","commands":[")") + line + "\"]}"));
        EXPECT_FALSE(desc.valid) << line;
    }
}

TEST_F(CommandWhitelistTest, SecondDescriptionLeavesNothingOfTheFirst) {
    TranscoderJobDesc desc("");
    desc.parse(json(R"({"uid":"u","commands":["tool a","tool b"]})"));
    desc.parse(json(R"({"uid":"u","commands":["tool c"]})"));
    ASSERT_EQ(desc.commands.size(), 1u);
    desc.parse(json(R"({"uid":"u","resource":"m"})"));
    EXPECT_EQ(desc.JobKind, TranscoderJobDesc::toolJob);
    EXPECT_TRUE(desc.commands.empty());
}

class RefusedVariable : public CommandWhitelistTest {};

TEST_P(RefusedVariable, IsRefusedUnlessItIsListed) {
    const std::string name = GetParam();
    const picojson::object variables{{name, picojson::value("x")}};
    const picojson::object fields{{"uid", picojson::value("u")},
                                  {"commands", listOf({"tool"})},
                                  {"environment", picojson::value(variables)}};
    TranscoderJobDesc desc("");
    TranscoderJobDesc::env_whitelist = {"SCENE", "*", "LD_", "P", "SCENE "};
    desc.parse(picojson::value(fields));
    EXPECT_FALSE(desc.valid);
    TranscoderJobDesc::env_whitelist.insert(name);
    desc.parse(picojson::value(fields));
    EXPECT_TRUE(desc.valid);
}

INSTANTIATE_TEST_SUITE_P(All, RefusedVariable,
                         testing::Values("PATH", "LD_PRELOAD", "LD_LIBRARY_PATH", "LD_AUDIT", "IFS",
                                         "BASH_ENV", "ENV", "SHELLOPTS", "BASH_FUNC_tool%%",
                                         "PYTHONPATH", "PYTHONSTARTUP", "PERL5OPT", "NODE_OPTIONS",
                                         "HOME", "TMPDIR", "GCONV_PATH", "OSTRANDHUB_DATA", "", " ",
                                         "scene", "Scene", " SCENE", "SCENE=", "SCENE=x",
                                         "SCENE" + zero, "SCENE" + zero + "x", "SCENE\n", "SCEN",
                                         "SCENE2", "PORTICO_HTTPURL_COOKIE_HEADER",
                                         "SERVICE_HUB_DELIVERY_HOST"));

} // namespace
} // namespace OstrandService

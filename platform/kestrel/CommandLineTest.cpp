#include "platform/kestrel/CommandLine.h"

#include "platform/kestrel/ToolStand.h"

#include <optional>

namespace Kestrel {

namespace {

using Words = std::vector<std::string>;

Words split(const std::string& text) {
    return CommandLine::split(text).value_or(Words{"(not split)"});
}

bool splits(const std::string& text) {
    return CommandLine::split(text).has_value();
}

} // namespace

TEST(CommandLineTest, BlanksTabsAndLineEndsSeparate) {
    EXPECT_EQ(split("a b\tc\nd\r\ne"), (Words{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(split(" \t a  \t\n b \n"), (Words{"a", "b"}));
}

TEST(CommandLineTest, TextWithoutWordGivesEmptyList) {
    EXPECT_EQ(split(""), Words{});
    EXPECT_EQ(split(" \t\r\n"), Words{});
}

TEST(CommandLineTest, SingleQuotesKeepEverything) {
    EXPECT_EQ(split(R"('a b' 'c"d' 'e\' 'f\\g')"), (Words{"a b", "c\"d", "e\\", "f\\\\g"}));
    EXPECT_EQ(split("'a\nb'"), (Words{"a\nb"}));
}

TEST(CommandLineTest, DoubleQuotesKeepAllButEscapedQuoteAndBackslash) {
    EXPECT_EQ(split(R"("a b" "it's")"), (Words{"a b", "it's"}));
    EXPECT_EQ(split(R"("a\"b" "c\\d" "e\\")"), (Words{"a\"b", "c\\d", "e\\"}));
    EXPECT_EQ(split(R"("a\nb\$c\ d\'e")"), (Words{R"(a\nb\$c\ d\'e)"}));
}

TEST(CommandLineTest, BackslashKeepsNextCharacterOutsideQuotes) {
    EXPECT_EQ(split(R"(a\ b \"c \\d \'e \f)"), (Words{"a b", "\"c", "\\d", "'e", "f"}));
    EXPECT_EQ(split("a\\\nb"), (Words{"a\nb"}));
    EXPECT_EQ(split("\\ "), (Words{" "}));
}

TEST(CommandLineTest, QuotedEmptyWordIsAWord) {
    EXPECT_EQ(split(R"(a '' "" b)"), (Words{"a", "", "", "b"}));
    EXPECT_EQ(split("''"), (Words{""}));
}

TEST(CommandLineTest, AdjacentPiecesAreOneWord) {
    EXPECT_EQ(split(R"(fet"tle"'.e'xe\ 2)"), (Words{"fettle.exe 2"}));
    EXPECT_EQ(split(R"(a""b)"), (Words{"ab"}));
}

TEST(CommandLineTest, NothingIsExpanded) {
    EXPECT_EQ(split("$HOME `x` $(y) * ~ {a,b} a;b|c&d>e #f !g"),
              (Words{"$HOME", "`x`", "$(y)", "*", "~", "{a,b}", "a;b|c&d>e", "#f", "!g"}));
}

TEST(CommandLineTest, OtherBytesAreKept) {
    const std::string zero("a\0b", 3);
    EXPECT_EQ(split(zero), Words{zero});
    EXPECT_EQ(split("\xc3\xa4\xff \v"), (Words{"\xc3\xa4\xff", "\v"}));
}

TEST(CommandLineTest, UnclosedQuoteOrBackslashAtTheEndIsNoLine) {
    EXPECT_FALSE(splits("a 'b"));
    EXPECT_FALSE(splits("a \"b"));
    EXPECT_FALSE(splits("\"a\\\""));
    EXPECT_FALSE(splits("\"a\\"));
    EXPECT_FALSE(splits("a\\"));
    EXPECT_FALSE(splits("'"));
}

TEST(CommandLineTest, ProgramIsTheFirstWord) {
    EXPECT_EQ(CommandLine::program(" fet'tle' --x3d a"), "fettle");
    EXPECT_EQ(CommandLine::program(""), "");
    EXPECT_EQ(CommandLine::program("'' a"), "");
    EXPECT_EQ(CommandLine::program("fettle 'a"), "");
}

/// A PATH and a working folder of the test's own, put back at the end.
class LocateTest : public ToolStand {
public:
    LocateTest() {
        if (const char* value = std::getenv("PATH"))
            formerPath = value;
        std::filesystem::create_directories(path("bin"));
        std::filesystem::create_directories(path("job/sub"));
        std::filesystem::create_directories(path("service/sub"));
        std::filesystem::current_path(path("service"));
        setPath(path("nowhere") + ":" + path("bin"));
    }
    ~LocateTest() override {
        if (formerPath)
            setPath(*formerPath);
        std::filesystem::current_path(formerFolder);
    }

    static void setPath(const std::string& value) { ::setenv("PATH", value.c_str(), 1); }

    std::string locate(const std::string& word) const {
        return CommandLine::locate(word, path("job"));
    }

private:
    std::optional<std::string> formerPath;
    const std::filesystem::path formerFolder = std::filesystem::current_path();
};

TEST_F(LocateTest, PlainNameIsSearchedOnThePath) {
    const std::string tool = script("bin/tool", "");
    EXPECT_EQ(locate("tool"), tool);
    script("job/other", "");
    script("service/other", "");
    EXPECT_EQ(locate("other"), "");
    EXPECT_EQ(locate(""), "");
}

TEST_F(LocateTest, FirstFolderOfThePathWins) {
    std::filesystem::create_directory(path("nowhere"));
    script("bin/tool", "");
    const std::string first = script("nowhere/tool", "");
    EXPECT_EQ(locate("tool"), first);
}

TEST_F(LocateTest, WhatCannotBeExecutedOnThePathIsPassedOver) {
    std::filesystem::create_directories(path("nowhere/tool"));
    write("nowhere/plain", "");
    const std::string tool = script("bin/tool", "");
    const std::string plain = script("bin/plain", "");
    EXPECT_EQ(locate("tool"), tool);
    EXPECT_EQ(locate("plain"), plain);
}

TEST_F(LocateTest, RelativeAndEmptyFoldersOfThePathAreTheServices) {
    script("service/tool", "");
    script("service/sub/deep", "");
    setPath("sub:");
    EXPECT_EQ(locate("tool"), path("service/./tool"));
    EXPECT_EQ(locate("deep"), path("service/sub/deep"));
}

TEST_F(LocateTest, WithoutAPathTheSystemsFoldersAreSearched) {
    ::unsetenv("PATH");
    EXPECT_TRUE(std::filesystem::exists(locate("true")));
}

TEST_F(LocateTest, ExeEndingIsDroppedWhereOnlyTheBareNameIsThere) {
    const std::string bare = script("bin/fettle", "");
    EXPECT_EQ(locate("fettle.exe"), bare);
    const std::string full = script("bin/fettle.exe", "");
    EXPECT_EQ(locate("fettle.exe"), full);
    EXPECT_EQ(locate("fettle.EXE"), "");
    EXPECT_EQ(locate("fettle.exe.exe"), full);
    EXPECT_EQ(locate(".exe"), "");
}

TEST_F(LocateTest, ExeEndingOfAPathIsKept) {
    script("job/sub/fettle", "");
    EXPECT_EQ(locate("sub/fettle.exe"), "");
}

TEST_F(LocateTest, RelativePathIsTheServicesThenTheJobs) {
    script("job/sub/tool", "");
    EXPECT_EQ(locate("sub/tool"), path("job/sub/tool"));
    EXPECT_EQ(locate("./sub/tool"), path("job/./sub/tool"));
    script("service/sub/tool", "");
    EXPECT_EQ(locate("sub/tool"), path("service/sub/tool"));
    EXPECT_EQ(locate("sub/missing"), "");
}

TEST_F(LocateTest, RelativeJobFolderIsTheServices) {
    script("service/sub/tool", "");
    EXPECT_EQ(CommandLine::locate("./tool", "sub"), path("service/sub/./tool"));
    EXPECT_EQ(CommandLine::locate("./tool", ""), "");
}

TEST_F(LocateTest, AbsolutePathStandsIfItExists) {
    write("job/data", "");
    EXPECT_EQ(locate(path("job/data")), path("job/data"));
    EXPECT_EQ(locate(path("job/missing")), "");
    EXPECT_EQ(locate("/job/data"), "");
}

TEST_F(LocateTest, NameWithAZeroByteIsNotCut) {
    script("bin/tool", "");
    EXPECT_EQ(locate(std::string("tool\0x", 6)), "");
}

} // namespace Kestrel

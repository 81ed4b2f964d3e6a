#include "framework/PagePieces.h"

#include "platform/kestrel/SysInfo.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

TEST(PagePiecesTest, OpensAFrontPage) {
    EXPECT_EQ(PagePieces::frontPageOpen("Title"),
              "<html><header></header><body><h1 align='center'>Title</h1>"
              "<p align='center'>An Ostrandhub Service</p>");
}

// The list is left open on purpose.
TEST(PagePiecesTest, TellsTheVersionInAnOpenList) {
    EXPECT_EQ(PagePieces::versionItem("1.0.0"),
              "<h2>Status</h2><ul><li>Version: 1.0.0 (<a href=\"./changelog\">Changelog</a>)</li>");
}

TEST(PagePiecesTest, TellsOfTheMachineInAnOpenBlock) {
    const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
    EXPECT_EQ(PagePieces::systemBlock(), "<h2>System</h2><pre>Host Name   : " + system.hostName() +
                                             "\nMachine Name: " + system.machineType +
                                             "\nCPU Count   : " + std::to_string(system.numCpus) +
                                             "\nOS          : " + system.osName + "\n");
}

TEST(PagePiecesTest, LinksTheJobList) {
    EXPECT_EQ(PagePieces::jobListOption(),
              "<h2>Options</h2><ul><li><a href=\"./job\">Job List</a></li></ul>");
}

TEST(PagePiecesTest, BuildsTheJobList) {
    EXPECT_EQ(PagePieces::jobListOpen(), "<html><header></header><body><h1>Jobs</h1>");
    EXPECT_EQ(PagePieces::countLine("Number of Jobs: ", 4294967295u),
              "Number of Jobs: 4294967295<br>");
    EXPECT_EQ(PagePieces::jobListHead(3, 4294967295u, 0),
              "<html><header></header><body><h1>Jobs</h1>Number of Jobs: 3<br>"
              "Number of finished Jobs: 4294967295<br>Number of failed Jobs: 0<br><br>");
    const std::string open = "<td bgcolor='#000000' align='center'><font color='#FFFFFF'>";
    const std::string close = "</font></td>";
    EXPECT_EQ(PagePieces::jobTableOpen(),
              "<p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
              "<table border='0'><tr>" +
                  open + "ID" + close + open + "Resource" + close + open + "CmdLine" + close +
                  open + "Status" + close + open + "Time Added" + close + open + "Statistics" +
                  close + "</tr>");
    EXPECT_EQ(PagePieces::idCell("P/7", "7"), "<td><a href='../job/P/7'>7</a></td>");
    EXPECT_EQ(PagePieces::jobListClose(), "</table></body></html>");
}

TEST(PagePiecesTest, EscapesNothingInCells) {
    EXPECT_EQ(PagePieces::titledCell("a\"<b>", "&c"), "<td title=\"a\"<b>\">&c</td>");
    EXPECT_EQ(PagePieces::cell("<i>"), "<td><i></td>");
}

TEST(PagePiecesTest, ShortensByBytes) {
    const std::string sixty(60, 'a');
    EXPECT_EQ(PagePieces::shortened(""), "");
    EXPECT_EQ(PagePieces::shortened(sixty), sixty);
    const std::string longer = std::string(30, 'a') + "x" + std::string(30, 'b');
    EXPECT_EQ(PagePieces::shortened(longer), std::string(30, 'a') + "..." + std::string(30, 'b'));
    EXPECT_EQ(PagePieces::shortened(longer).size(), 63u);
    // 61 bytes, of which the cut at 30 falls into the middle of a character.
    const std::string utf = std::string(29, 'a') + "\xc3\xa4" + std::string(30, 'b');
    EXPECT_EQ(PagePieces::shortened(utf), std::string(29, 'a') + "\xc3..." + std::string(30, 'b'));
}

class ConsoleBlockTest : public ::testing::Test {
protected:
    Support::TemporaryFolder folder;
};

TEST_F(ConsoleBlockTest, IsEmptyWithoutAFile) {
    EXPECT_EQ(PagePieces::consoleBlock(folder.path()), "");
    EXPECT_EQ(PagePieces::consoleBlock(folder.path("none")), "");
}

TEST_F(ConsoleBlockTest, ShowsTheConsoleUnescaped) {
    folder.write("console.txt", std::string("<b>\0&", 5));
    EXPECT_EQ(PagePieces::consoleBlock(folder.path()),
              "Console command batch : <BR> <pre>\n" + std::string("<b>\0&", 5) + "</pre>\n");
}

TEST_F(ConsoleBlockTest, ShowsWholeBlocks) {
    for (const std::size_t size : {0u, 4095u, 4096u, 4097u, 8192u}) {
        const std::string text(size, 'x');
        folder.write("console.txt", text);
        EXPECT_EQ(PagePieces::consoleBlock(folder.path()),
                  "Console command batch : <BR> <pre>\n" + text + "</pre>\n")
            << size;
    }
}

TEST_F(ConsoleBlockTest, ShowsTheHeadingAloneForTheToolsOwnFile) {
    folder.write("console.txt", "text");
    folder.write("console_fettle.txt", "other");
    EXPECT_EQ(PagePieces::consoleBlock(folder.path()), "Console fettle : <BR> ");
}

TEST_F(ConsoleBlockTest, IsAnEmptyBlockForAConsoleThatCannotBeRead) {
    folder.makeFolder("console.txt");
    EXPECT_EQ(PagePieces::consoleBlock(folder.path()),
              "Console command batch : <BR> <pre>\n</pre>\n");
}

} // namespace
} // namespace OstrandService

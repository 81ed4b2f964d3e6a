#include "framework/PagePieces.h"

#include "framework/JobFolder.h"
#include "platform/kestrel/SysInfo.h"

namespace OstrandService::PagePieces {

namespace {

constexpr std::size_t shownWhole = 60; ///< bytes of a text that is not shortened
constexpr std::size_t shownPart = 30;  ///< bytes kept of either end of a longer one

std::string headingCell(const std::string& label) {
    return "<td bgcolor='#000000' align='center'><font color='#FFFFFF'>" + label + "</font></td>";
}

} // namespace

std::string frontPageOpen(const std::string& title) {
    return "<html><header></header><body>"
           "<h1 align='center'>" +
           title +
           "</h1>"
           "<p align='center'>An Ostrandhub Service</p>";
}

std::string versionItem(const std::string& version) {
    return "<h2>Status</h2><ul><li>Version: " + version +
           " (<a href=\"./changelog\">Changelog</a>)</li>";
}

std::string jobListOption() {
    return "<h2>Options</h2><ul><li><a href=\"./job\">Job List</a></li></ul>";
}

std::string systemBlock() {
    const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
    return "<h2>System</h2><pre>"
           "Host Name   : " +
           system.hostName() + "\nMachine Name: " + system.machineType +
           "\nCPU Count   : " + std::to_string(system.numCpus) +
           "\nOS          : " + system.osName + "\n";
}

std::string jobListOpen() {
    return "<html><header></header><body><h1>Jobs</h1>";
}

std::string countLine(const std::string& label, std::uint32_t count) {
    return label + std::to_string(count) + "<br>";
}

std::string jobListHead(std::uint32_t pending, std::uint32_t finished, std::uint32_t failed) {
    return jobListOpen() + countLine("Number of Jobs: ", pending) +
           countLine("Number of finished Jobs: ", finished) +
           countLine("Number of failed Jobs: ", failed) + "<br>";
}

std::string jobTableOpen() {
    std::string text = "<p>For more detailed statistics <a href=\"../statistics\">go here</a>.</p>"
                       "<table border='0'><tr>";
    for (const char* label : {"ID", "Resource", "CmdLine", "Status", "Time Added", "Statistics"})
        text += headingCell(label);
    return text + "</tr>";
}

std::string idCell(const std::string& path, const std::string& id) {
    return "<td><a href='../job/" + path + "'>" + id + "</a></td>";
}

std::string titledCell(const std::string& title, const std::string& shown) {
    return "<td title=\"" + title + "\">" + shown + "</td>";
}

std::string cell(const std::string& content) {
    return "<td>" + content + "</td>";
}

std::string jobListClose() {
    return "</table></body></html>";
}

// Counts bytes: a cut may go through a character, and the pages declare no character set.
std::string shortened(const std::string& text) {
    if (text.size() <= shownWhole)
        return text;
    return text.substr(0, shownPart) + "..." + text.substr(text.size() - shownPart);
}

std::string consoleBlock(const std::string& folder) {
    if (JobFolder::exists(folder + "/console_fettle.txt"))
        return "Console fettle : <BR> ";
    const std::string console = folder + "/console.txt";
    if (!JobFolder::exists(console))
        return "";
    return "Console command batch : <BR> <pre>\n" + JobFolder::readText(console) + "</pre>\n";
}

} // namespace OstrandService::PagePieces

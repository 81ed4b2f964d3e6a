#pragma once

#include <cstdint>
#include <string>

/// Pieces of HTML that more than one page shares. Pure functions, for any thread; they return text
/// and escape nothing. Elements that stay open are part of the pages' settled form.
namespace OstrandService::PagePieces {

/// The head of a front page: opening tags, `title` and the line below it.
std::string frontPageOpen(const std::string& title);

/// The heading "Status" and the open list with the version.
std::string versionItem(const std::string& version);

/// The heading "Options" and the list with the link to the job list.
std::string jobListOption();

/// The heading "System" and the open `pre` with the machine's host name, type, processor count and
/// system name.
std::string systemBlock();

/// The head of a job list with its heading.
std::string jobListOpen();

/// A line with a number behind its label, as above the table of a job list.
std::string countLine(const std::string& label, std::uint32_t count);

/// The head of a framework provider's job list down to the table: heading and the three counters.
std::string jobListHead(std::uint32_t pending, std::uint32_t finished, std::uint32_t failed);

/// The pointer to the statistics page and the job table with its six headings.
std::string jobTableOpen();

/// The cell with the link of a job: `path` behind "../job/", shown as `id`.
std::string idCell(const std::string& path, const std::string& id);

/// A cell with `shown`, and `title` on hover.
std::string titledCell(const std::string& title, const std::string& shown);

std::string cell(const std::string& content);

/// The end of a job list.
std::string jobListClose();

/// A text of more than 60 bytes as its first 30, "...", and its last 30.
std::string shortened(const std::string& text);

/// What a job page shows of the console files in `folder`: the heading alone where the optimiser
/// tool's own file is there, else heading and text of "console.txt", else nothing.
std::string consoleBlock(const std::string& folder);

} // namespace OstrandService::PagePieces

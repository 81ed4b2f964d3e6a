#pragma once

#include <string>

namespace Portico {
class MessageHeader;
}

/// What a browser may do with a page. The pages show texts of jobs as they came, markup included:
/// it is the header that keeps a script in them from running. Pure functions, for any thread.
namespace OstrandService::PagePolicy {

/// "Content-Security-Policy" of a page that needs neither scripts nor styles. It allows images of
/// the same server, for its icon; that a text has one of the server's addresses fetched so is
/// nothing new, since pages of any origin may do that.
///
/// The sandbox is for what the other directives leave: a refresh that a text asks for is not done
/// either. What the page's links lead to is free of it, in the same tab or in a new one.
std::string withoutScripts();

/// The same for a page with a script library from `library`, an address without comma or
/// semicolon, one inline script and one inline style, which are given as they stand between their
/// tags. No other script runs, however the page comes to hold it.
std::string withScript(const std::string& library, const std::string& script,
                       const std::string& style);

/// The header of every HTML page: withoutScripts(), no guessing of the type, and no address of a
/// page, which can hold a job's uid, for those that its links lead to.
Portico::MessageHeader header();

} // namespace OstrandService::PagePolicy

#pragma once

#include <map>
#include <memory>
#include <string>

namespace Portico {

class WebPage;

/// Which page answers which path. Filled before the server starts, read by all its threads after.
class PageTable {
public:
    PageTable();
    ~PageTable();
    PageTable(const PageTable&) = delete;
    PageTable& operator=(const PageTable&) = delete;

    /// Stores a clone of `page`. A path that ends in "*" is a pattern and takes every path that
    /// begins with what stands before the star. The same path again replaces the page.
    void add(const std::string& path, const WebPage& page);

    /// The page for a decoded path, or null. An exact path goes before a pattern, a longer pattern
    /// before a shorter one, whatever the order of adding.
    WebPage* find(const std::string& path) const;

    /// Drops all pages.
    void clear();

private:
    std::map<std::string, std::unique_ptr<WebPage>> exact;
    std::map<std::string, std::unique_ptr<WebPage>> patterns; ///< by the text before the star
};

} // namespace Portico

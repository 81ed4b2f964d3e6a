#include "platform/portico/PageTable.h"

#include "platform/portico/WebPage.h"

namespace Portico {

PageTable::PageTable() = default;

PageTable::~PageTable() = default;

void PageTable::add(const std::string& path, const WebPage& page) {
    std::unique_ptr<WebPage> copy(page.clone());
    if (!path.empty() && path.back() == '*')
        patterns[path.substr(0, path.size() - 1)] = std::move(copy);
    else
        exact[path] = std::move(copy);
}

void PageTable::clear() {
    exact.clear();
    patterns.clear();
}

WebPage* PageTable::find(const std::string& path) const {
    const auto page = exact.find(path);
    if (page != exact.end())
        return page->second.get();
    // What begins a path sorts before it, and the longer beginning behind the shorter one.
    for (auto pattern = patterns.upper_bound(path); pattern != patterns.begin();) {
        --pattern;
        if (path.compare(0, pattern->first.size(), pattern->first) == 0)
            return pattern->second.get();
    }
    return nullptr;
}

} // namespace Portico

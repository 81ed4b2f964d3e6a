#pragma once

#include "platform/portico/PageTable.h"

#include <string>

namespace Portico {

class WebPage;

/// What every web server has: a name, a page table and a bound on its own log lines. Set up on one
/// thread before the server starts.
class WebServer {
public:
    WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;
    virtual ~WebServer();

    /// The name that the header "Server" of every reply gives.
    void setRealm(const std::string& name) { realm = name; }

    /// The number of lines a minute that the server itself may write to the log about refused or
    /// failed requests; what is beyond is counted in one line.
    void setLogSize(int linesPerMinute) { logSize = linesPerMinute; }

    /// Stores a clone of `page` under `path`; see PageTable.
    void addPage(const std::string& path, const WebPage& page);

    /// Drops all pages and the name; only while the server does not run.
    void clearPages();

protected:
    PageTable pages;
    std::string realm;
    int logSize = 25;
};

} // namespace Portico

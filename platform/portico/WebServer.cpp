#include "platform/portico/WebServer.h"

#include "platform/portico/WebPage.h"

namespace Portico {

WebServer::WebServer() = default;

WebServer::~WebServer() = default;

void WebServer::addPage(const std::string& path, const WebPage& page) {
    pages.add(path, page);
}

void WebServer::clearPages() {
    pages.clear();
    std::string().swap(realm);
}

} // namespace Portico

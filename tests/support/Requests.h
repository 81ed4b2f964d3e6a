#pragma once

#include "platform/portico/PageTable.h"
#include "platform/portico/ProtocolHTTP.h"
#include "platform/portico/WebPage.h"
#include "platform/portico/WebServer.h"

#include <string>

namespace Support {

/// A request as the web server hands it to a page.
inline Portico::ProtocolHTTP::Request makeRequest(const std::string& method, const std::string& uri,
                                                  const std::string& body = "") {
    Portico::ProtocolHTTP::Request request;
    request.method = method;
    request.uri = uri;
    request.body() = body;
    return request;
}

/// The value of a reply's header; "(none)" where it is not set.
inline std::string headerOf(const Portico::ProtocolHTTP::Reply& reply, const char* name) {
    return reply.header().getParam(name, "(none)");
}

/// True if the reply lets a page of any origin, or of `origin`, read it.
inline bool hasCors(const Portico::ProtocolHTTP::Reply& reply, const std::string& origin = "*") {
    return headerOf(reply, "Access-Control-Allow-Origin") == origin &&
           headerOf(reply, "Access-Control-Allow-Headers") == "content-type";
}

/// True if the reply has neither of the two headers.
inline bool hasNoCors(const Portico::ProtocolHTTP::Reply& reply) {
    return !reply.header().hasParam("Access-Control-Allow-Origin") &&
           !reply.header().hasParam("Access-Control-Allow-Headers");
}

/// A look at the pages of a server that does not run.
class ServerPages : private Portico::WebServer {
public:
    /// The page for a path, or null.
    static Portico::WebPage* find(const Portico::WebServer& server, const std::string& path) {
        return (server.*(&ServerPages::pages)).find(path);
    }

    /// What the page for a request's path answers, as the server asks it. A path without a page
    /// gives the code 404.
    static Portico::ProtocolHTTP::Reply ask(const Portico::WebServer& server,
                                            const Portico::ProtocolHTTP::Request& request) {
        Portico::ProtocolHTTP::Reply reply;
        if (Portico::WebPage* page = find(server, request.uri))
            page->create(nullptr, request, reply);
        else
            reply.setCode(404);
        return reply;
    }
};

} // namespace Support

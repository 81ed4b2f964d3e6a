#pragma once

#include "platform/portico/ProtocolHTTP.h"

namespace Portico {

/// The connection that a request came in on. Pages get a pointer to it and need nothing of it.
class WebClient;

/// A page of a web server. The server keeps a clone and calls it from many threads at a time, so a
/// page holds nothing that a request changes.
class WebPage {
public:
    /// What a page says of a request: 1 handled, 0 not. Either way the reply is sent as it stands.
    using RequestResult = int;

    virtual ~WebPage();

    /// The page's handler in its short form. The default does nothing and returns false.
    virtual bool create(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply);

    /// What the server calls; the default calls the short form. An exception out of it is answered
    /// with 500 and an empty body.
    virtual RequestResult create(WebClient* client, const ProtocolHTTP::Request& request,
                                 ProtocolHTTP::Reply& reply);

    /// A new copy, owned by the caller.
    virtual WebPage* clone() const = 0;

protected:
    WebPage() = default;
    WebPage(const WebPage&) = default;
    WebPage& operator=(const WebPage&) = default;
};

} // namespace Portico

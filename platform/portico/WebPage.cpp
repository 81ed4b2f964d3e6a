#include "platform/portico/WebPage.h"

namespace Portico {

WebPage::~WebPage() = default;

bool WebPage::create(const ProtocolHTTP::Request&, ProtocolHTTP::Reply&) {
    return false;
}

WebPage::RequestResult WebPage::create(WebClient*, const ProtocolHTTP::Request& request,
                                       ProtocolHTTP::Reply& reply) {
    return create(request, reply) ? 1 : 0;
}

} // namespace Portico

#include "platform/portico/WebPageStatic.h"

namespace Portico {

WebPageStatic::WebPageStatic(const char* data, unsigned long size, const std::string& type,
                             unsigned long status)
    : content(data, size), mimeType(type), code(status) {}

bool WebPageStatic::create(const ProtocolHTTP::Request&, ProtocolHTTP::Reply& reply) {
    reply.setCode(code);
    reply.header().setParam("Content-Type", mimeType.c_str());
    reply.body() = content;
    return true;
}

WebPage* WebPageStatic::clone() const {
    return new WebPageStatic(*this);
}

} // namespace Portico

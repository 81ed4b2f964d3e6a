#include "framework/JobReply.h"

#include "platform/config/Base.h"
#include "platform/portico/ProtocolHTTP.h"

namespace OstrandService {

void redirectTo(Portico::ProtocolHTTP::Reply& reply, const std::string& uri) {
    reply.setCode(302);
    reply.header().setParam("Access-Control-Expose-Headers", "Location");
    reply.header().setParam("Location", Config::Base::value2String(uri).c_str());
    reply.body() = "<html><header><title>Moved</title></header><body>"
                   "<h1>Moved</h1><p>This page has moved to <a href=\"" +
                   uri + "\">" + uri + "</a>.</p></body></html>";
}

} // namespace OstrandService

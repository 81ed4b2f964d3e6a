#include "framework/Cors.h"

#include "platform/portico/ProtocolHTTP.h"

namespace OstrandService {

void addCorsHeaders(const Portico::ProtocolHTTP::Request& request,
                    Portico::ProtocolHTTP::Reply& reply) {
    reply.header().setParam("Access-Control-Allow-Origin",
                            request.header().getParam("Origin", "*"));
    reply.header().setParam("Access-Control-Allow-Headers", "content-type");
}

} // namespace OstrandService

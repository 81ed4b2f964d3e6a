#include "providers/legacy/PageAnswer.h"

#include "framework/Cors.h"
#include "platform/portico/ProtocolHTTP.h"

namespace OstrandService {

void answerPage(const ServiceProvider::Request& request, ServiceProvider::Reply& reply,
                const char* contentType, const std::string& body) {
    addCorsHeaders(request, reply);
    reply.header().setParam("Content-Type", contentType);
    reply.body() = body;
}

} // namespace OstrandService

#pragma once

#include "framework/ServiceProvider.h"

#include <string>

namespace OstrandService {

/// Fills in a page of the legacy provider: the CORS headers, the type and the body. The code stays
/// what it is, 200 in a new reply.
void answerPage(const ServiceProvider::Request& request, ServiceProvider::Reply& reply,
                const char* contentType, const std::string& body);

} // namespace OstrandService

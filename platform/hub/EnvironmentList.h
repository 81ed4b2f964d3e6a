#pragma once

#include <string>
#include <utility>
#include <vector>

namespace OstrandService {

/// Variables for a tool: name and value.
using EnvironmentList = std::vector<std::pair<std::string, std::string>>;

/// Pairs with the client's filtered cookies and the delivery host, as a tool finds them.
inline constexpr const char* cookieVariable = "PORTICO_HTTPURL_COOKIE_HEADER";
inline constexpr const char* deliveryHostVariable = "SERVICE_HUB_DELIVERY_HOST";

} // namespace OstrandService

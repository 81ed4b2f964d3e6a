#pragma once

#include <string>

namespace Portico::ProtocolHTTP {
class Request;
}

namespace OstrandService {

/// Writes to standard error, in one piece, that a job request of this kind came ("dapple : job KIND
/// request : "), and the request itself below. Any thread.
void reportRequest(const std::string& kind, const Portico::ProtocolHTTP::Request& request);

} // namespace OstrandService

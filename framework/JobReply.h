#pragma once

#include <string>

namespace Portico::ProtocolHTTP {
class Reply;
}

namespace OstrandService {

/// Turns a reply into a redirection to `uri`: code 302, the location, which a browser's scripts may
/// read, and a page for people.
void redirectTo(Portico::ProtocolHTTP::Reply& reply, const std::string& uri);

} // namespace OstrandService

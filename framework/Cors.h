#pragma once

namespace Portico::ProtocolHTTP {
class Request;
class Reply;
} // namespace Portico::ProtocolHTTP

namespace OstrandService {

/// Sets the pair of headers that lets a browser page of any origin read the reply: the request's
/// own "Origin", or "*", and "content-type" as the header that may be sent.
void addCorsHeaders(const Portico::ProtocolHTTP::Request& request,
                    Portico::ProtocolHTTP::Reply& reply);

} // namespace OstrandService

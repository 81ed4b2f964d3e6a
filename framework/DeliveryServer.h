#pragma once

#include <string>

namespace Portico {
class ThreadedWebServer;
}

namespace OstrandService {

/// Starts the server that hands out results, on the port behind the host's, with the host's number
/// of page threads, and says on standard output where it listens. With the names of a certificate
/// and its key it serves over TLS, with empty ones plainly. Throws what the start of a web server
/// throws.
void startDeliveryServer(Portico::ThreadedWebServer& server, const std::string& certFile,
                         const std::string& keyFile);

} // namespace OstrandService

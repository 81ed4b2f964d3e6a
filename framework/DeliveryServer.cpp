#include "framework/DeliveryServer.h"

#include "host/OstrandService.h"
#include "platform/portico/ThreadedWebServer.h"

#include <cstdint>
#include <iostream>

namespace OstrandService {

void startDeliveryServer(Portico::ThreadedWebServer& server, const std::string& certFile,
                         const std::string& keyFile) {
    const OstrandService& host = OstrandService::the();
    server.setRealm("OstrandServiceDelivery");
    server.setLogSize(25);
    server.startFlags = 0;
    server.threadParams = host.webServer.threadParams;
    server.traceRequests = false;
    server.traceReplies = false;
    // Behind 65535 comes 0, which stands for any free port.
    server.start("", static_cast<std::uint16_t>(host.port + 1), certFile, keyFile);
    std::cout << "OstrandServiceDelivery listening on port: "
              << server.socketAddress.getServicePort() << " with : " << host.listenThreads
              << " threads" << std::endl;
}

} // namespace OstrandService

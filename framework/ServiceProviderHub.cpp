#include "framework/ServiceProvider.h"
#include "host/OstrandService.h"
#include "platform/kestrel/SysInfo.h"

#include <ostream>

namespace OstrandService {

// Blanks and line ends are part of the document's form. No value is escaped: a host name with a
// quote in it breaks the document, and hubs are used to plain names.
void ServiceProvider::writeProviderInfo(std::ostream& out, const std::string& service) {
    const OstrandService& host = OstrandService::the();
    const Kestrel::SysInfo& system = Kestrel::SysInfo::the();
    // Announced by the flag alone, also where no certificate let the secure server start.
    const std::uint16_t securePort = host.ssl ? static_cast<std::uint16_t>(host.port - 1) : 0;
    out << "  {" << std::endl
        << "    \"Service\"     : \"" << service << "\"," << std::endl
        << "    \"ProviderId\"  : \"" << providerId << "\"," << std::endl
        << "    \"Host\"        : \"" << host.getHost() << "\"," << std::endl
        << "    \"MachineType\" : \"" << system.machineType << "\"," << std::endl
        << "    \"CPUs\"        : \"" << system.numCpus << "\"," << std::endl
        << "    \"OS\"          : \"" << system.osName << "\"," << std::endl
        << "    \"Port\"        : " << host.port << "," << std::endl
        << "    \"PortSSL\"     : " << securePort << "," << std::endl
        << "    \"JobUri\"      : \"/job\"";
}

void ServiceProvider::writeRegistrationHead(std::ostream& out, const std::string& service) {
    out << "{" << std::endl
        << "  \"Command\" : \"addServiceProvider\"," << std::endl
        << "  \"Group\" : \"" << OstrandService::the().group << "\"," << std::endl
        << "  \"ServiceProvider\" : " << std::endl;
    writeProviderInfo(out, service);
}

void ServiceProvider::writeRegistrationTail(std::ostream& out) {
    out << "  }" << std::endl << "}" << std::endl;
}

} // namespace OstrandService

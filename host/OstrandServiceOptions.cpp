#include "host/OstrandService.h"

#include "framework/OptionValues.h"
#include "framework/ServiceProvider.h"

#include <boost/program_options/options_description.hpp>

namespace OstrandService {

namespace po = boost::program_options;

void OstrandService::addOptions(po::options_description& desc) {
    // clang-format off
    desc.add_options()
        ("help,h", "This help message.")
        ("mport", plainNumber(mport), "Multicast zero conf port.")
        ("maddr", po::value<std::string>(&maddr), "Multicast zero conf address.")
        ("mttl", po::value<std::int32_t>(&mttl), "Multicast zero conf ttl.")
        ("refresh,r", po::value<std::int32_t>(&refresh),
         "Time interval to renew registration (0 == none).")
        ("port,p", plainNumber(port), "Service port number to listen on.")
        ("host", po::value<std::string>(&host), "force hostname")
        ("listen_threads", po::value<std::int32_t>(&listenThreads)->notifier(refuseManyThreads),
         "Number of listening threads, default is 256.")
        ("group,g", po::value<std::string>(&group), "register with the hub for group")
        ("allowReconfig", po::value<bool>(&allowReconfig), "allow on the fly recongiguration")
        ("ssl,s", po::value<bool>(&ssl)->implicit_value(true)->zero_tokens(),
         "use ssl connection to hub")
        ("ssl-cert", po::value<std::string>(&sslCert), "ssl certificate filename.")
        ("ssl-key", po::value<std::string>(&sslKey), "ssl key filename.");
    // clang-format on
    if (provider)
        provider->addOptions(desc);
}

} // namespace OstrandService

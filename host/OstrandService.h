#pragma once

#include "platform/portico/ThreadedWebServer.h"

#include <cstdint>
#include <string>

namespace boost::program_options {
class options_description;
class variables_map;
} // namespace boost::program_options

namespace OstrandService {

class ServiceProvider;

/// The process-wide host: the common options, the one provider that runs, and the two web servers
/// that carry its pages.
///
/// Made and filled on the main thread before any other thread starts, and only read afterwards: it
/// needs no lock. The operations belong to the main thread and are called in the order in which
/// they stand here.
class OstrandService {
public:
    /// The one instance, made on first use and never destroyed.
    static OstrandService& the();

    /// Has the registry make the provider; false where it knows none of this name.
    bool createProvider(const std::string& name);
    void setupLogging();
    /// Adds the common options and behind them the provider's.
    void addOptions(boost::program_options::options_description& desc);
    bool init(const boost::program_options::variables_map& vm);
    void addPages();
    /// Starts the web servers, then the provider. Throws Portico::ListenError.
    void start();
    /// Returns when the termination signal has come; calls the provider's update() meanwhile.
    void wait();
    /// Stops the web servers, then the provider, and destroys it.
    void stop();

    unsigned short getPort() const { return port; }
    std::string getHost() const { return host; }

    std::uint16_t mport = 5311;              ///< port for multicast registration
    std::string maddr = "224.21.12.68";      ///< group address for multicast registration
    std::int32_t mttl = 2;                   ///< time-to-live of multicast registration, hops
    std::int32_t refresh = 0;                ///< seconds between two registrations; 0: once
    std::uint16_t port = 4711;               ///< of the main web server
    std::string host;                        ///< name under which clients reach the service
    std::int32_t listenThreads = 256;        ///< pages that may run at once on the main server
    std::string group = "DefaultGroup";      ///< group to register for
    std::string version = "1.0.0";           ///< shown on pages
    bool allowReconfig = false;              ///< reconfiguration at run time is allowed
    bool ssl = false;                        ///< https to the hub, and a secure web server
    std::string sslCert;                     ///< certificate file of the secure web server
    std::string sslKey;                      ///< key file of the secure web server
    ServiceProvider* provider = nullptr;     ///< owned
    Portico::ThreadedWebServer webServer;    ///< on `port`
    Portico::ThreadedWebServer sslWebServer; ///< on `port` minus 1, with `ssl` and a certificate

private:
    class WaitForTerm;

    OstrandService();

    void startPlainServer();
    void startSecureServer();
};

} // namespace OstrandService

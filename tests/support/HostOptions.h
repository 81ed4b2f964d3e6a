#pragma once

#include "host/OstrandService.h"

namespace Support {

/// Keeps the option values of the process-wide host, and puts them back at the end of a test that
/// changes them. The pages of its servers are dropped then too.
class HostOptions {
public:
    HostOptions()
        : mport(host().mport), maddr(host().maddr), mttl(host().mttl), refresh(host().refresh),
          port(host().port), name(host().host), listenThreads(host().listenThreads),
          group(host().group), version(host().version), ssl(host().ssl), sslCert(host().sslCert),
          sslKey(host().sslKey) {}
    ~HostOptions() {
        host().mport = mport;
        host().maddr = maddr;
        host().mttl = mttl;
        host().refresh = refresh;
        host().port = port;
        host().host = name;
        host().listenThreads = listenThreads;
        host().group = group;
        host().version = version;
        host().ssl = ssl;
        host().sslCert = sslCert;
        host().sslKey = sslKey;
        host().webServer.clearPages();
        host().sslWebServer.clearPages();
    }
    HostOptions(const HostOptions&) = delete;
    HostOptions& operator=(const HostOptions&) = delete;

    static OstrandService::OstrandService& host() { return OstrandService::OstrandService::the(); }

private:
    const std::uint16_t mport;
    const std::string maddr;
    const std::int32_t mttl;
    const std::int32_t refresh;
    const std::uint16_t port;
    const std::string name;
    const std::int32_t listenThreads;
    const std::string group;
    const std::string version;
    const bool ssl;
    const std::string sslCert;
    const std::string sslKey;
};

} // namespace Support

#pragma once

#include "providers/legacy/StopWatch.h"

#include <atomic>
#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class OstrandHubServiceProvider;
namespace Portico {
class WebServer;
}

namespace OstrandService {

class JobProcThread;
class LegacyJobStore;

/// The legacy provider's settings and what its parts share. Its code reaches the one object through
/// `LegacyState::current`. Settings are written before the workers start and only read then, but
/// for what is marked otherwise.
struct LegacyState {
    LegacyState();
    ~LegacyState();
    LegacyState(const LegacyState&) = delete;
    LegacyState& operator=(const LegacyState&) = delete;

    /// The object of the provider that runs; null where none does.
    static LegacyState* current;

    /// The identifier of the hub client; empty while there is none. Any thread.
    std::string serviceId() const;

    /// Base URI of the delivery server as clients are told. Changed at run time; any thread.
    std::string getDeliveryService() const;
    void setDeliveryService(const std::string& uri);

    Portico::WebServer* webServer = nullptr; ///< the host's
    /// Owned; set once by the main thread while web threads read it.
    std::atomic<OstrandHubServiceProvider*> hubClient{nullptr};
    std::unique_ptr<LegacyJobStore> store;
    std::int32_t workerCount = 3;       ///< threads made at the start; what the front page shows
    bool urlDecode = true;              ///< "resource" of a form is percent-decoded
    std::string fettlePath;             ///< the optimiser tool
    std::string cachePath;              ///< the folder of the job folders
    boost::filesystem::path uploadPath; ///< the folder of uploads, absolute
    std::string screenshotTemplate;     ///< scene of the screenshot run
    StopWatch stopWatch;                ///< the clock of all job times
    std::mutex workersMutex; ///< held over a whole change of the pool, and while it is ended
    std::vector<std::unique_ptr<JobProcThread>> workerThreads;   ///< guarded by `workersMutex`
    const std::vector<std::string> toolNames{"fettle", "glimt"}; ///< the tools; not looked at

private:
    mutable std::mutex deliveryMutex; ///< guards `deliveryService`
    std::string deliveryService;
};

} // namespace OstrandService

#include "providers/legacy/LegacyState.h"

#include "platform/hub/OstrandHubServiceProvider.h"
#include "providers/legacy/JobProcThread.h"
#include "providers/legacy/LegacyJobStore.h"

namespace OstrandService {

LegacyState* LegacyState::current = nullptr;

LegacyState::LegacyState() : store(std::make_unique<LegacyJobStore>(*this)) {}

LegacyState::~LegacyState() {
    if (OstrandHubServiceProvider* const client = hubClient.exchange(nullptr)) {
        client->close();
        delete client;
    }
}

std::string LegacyState::serviceId() const {
    const OstrandHubServiceProvider* const client = hubClient;
    return client ? client->getUUID() : std::string();
}

std::string LegacyState::getDeliveryService() const {
    const std::lock_guard<std::mutex> lock(deliveryMutex);
    return deliveryService;
}

void LegacyState::setDeliveryService(const std::string& uri) {
    const std::lock_guard<std::mutex> lock(deliveryMutex);
    deliveryService = uri;
}

} // namespace OstrandService

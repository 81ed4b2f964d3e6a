#include "host/ServiceProviderRegistry.h"

#include <cstdio>
#include <utility>

namespace OstrandService {

ServiceProviderRegistry& ServiceProviderRegistry::the() {
    static ServiceProviderRegistry* const instance = new ServiceProviderRegistry;
    return *instance;
}

void ServiceProviderRegistry::registerProvider(const std::string& name,
                                               ServiceProviderCreator creator) {
    std::fprintf(stderr, "trying register service provider %s\n", name.c_str());
    if (creator.empty()) {
        std::fprintf(stderr, "no create provider callback given\n");
        return;
    }
    // An empty name is told and no more: it is a valid key.
    if (name.empty())
        std::fprintf(stderr, "no provider name given\n");
    if (entries.find(name) != entries.end()) {
        // Reads like a success, and is what a rejected second registration has always printed.
        std::fprintf(stderr, "service provider registered\n");
        return;
    }
    std::fprintf(stderr, "registering service provider\n");
    ServiceProviderEntry entry;
    entry.creator = std::move(creator);
    entries.emplace(name, std::move(entry));
}

ServiceProvider* ServiceProviderRegistry::create(const std::string& name) {
    const auto found = entries.find(name);
    if (found == entries.end())
        return nullptr;
    // An entry that had an instance would give no second one; as it stands none ever has.
    if (found->second.instance)
        return nullptr;
    return found->second.creator();
}

void ServiceProviderRegistry::list() const {
    for (const auto& entry : entries) {
        std::fprintf(stderr, "service provider %s (%p)\n", entry.first.c_str(),
                     static_cast<const void*>(entry.second.instance));
    }
}

} // namespace OstrandService

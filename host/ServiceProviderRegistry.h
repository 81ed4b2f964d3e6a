#pragma once

#include <boost/function.hpp>
#include <map>
#include <string>

namespace OstrandService {

class ServiceProvider;

/// Makes a provider with `new`; the caller owns it.
using ServiceProviderCreator = boost::function<ServiceProvider*()>;

/// What the registry knows of a provider.
struct ServiceProviderEntry {
    ServiceProvider* instance = nullptr; ///< always null: the host keeps what is created
    ServiceProviderCreator creator;
};

/// The providers that are linked into the program, by name.
///
/// They enter from static initialisers, before main, through ServiceProviderRegistration; the host
/// lists and creates on the main thread before any other thread exists. Nothing is locked. All
/// messages go to standard error through stdio, which works before main.
class ServiceProviderRegistry {
public:
    /// The one instance, made on first use, so that the order of static initialisation does not
    /// matter, and never destroyed.
    static ServiceProviderRegistry& the();

    /// Enters a provider. The first registration of a name stays. An empty name is reported, and
    /// stored all the same.
    void registerProvider(const std::string& name, ServiceProviderCreator creator);

    /// A new provider, owned by the caller; null where the name is unknown.
    ServiceProvider* create(const std::string& name);

    /// Writes the providers to standard error, sorted by name.
    void list() const;

private:
    std::map<std::string, ServiceProviderEntry> entries;
};

/// Enters a provider when it is constructed: one static object in the provider's own source.
class ServiceProviderRegistration {
public:
    ServiceProviderRegistration(const std::string& name, const ServiceProviderCreator& creator) {
        ServiceProviderRegistry::the().registerProvider(name, creator);
    }
};

} // namespace OstrandService

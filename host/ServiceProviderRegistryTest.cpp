#include "host/ServiceProviderRegistry.h"

#include "tests/support/OutputCapture.h"
#include "tests/support/TestProvider.h"

#include <gtest/gtest.h>
#include <memory>

namespace OstrandService {
namespace {

using Support::OutputCapture;
using Support::TestProvider;

ServiceProvider* makeProvider() {
    return new TestProvider;
}

ServiceProvider* makeNone() {
    return nullptr;
}

std::unique_ptr<TestProvider> created(ServiceProviderRegistry& registry, const std::string& name) {
    return std::unique_ptr<TestProvider>(dynamic_cast<TestProvider*>(registry.create(name)));
}

std::string listing(const ServiceProviderRegistry& registry) {
    OutputCapture capture;
    registry.list();
    return capture.errors();
}

TEST(ServiceProviderRegistryTest, ReportsAGoodRegistration) {
    ServiceProviderRegistry registry;
    OutputCapture capture;
    registry.registerProvider("A", &makeProvider);
    EXPECT_EQ(capture.errors(), "trying register service provider A\n"
                                "registering service provider\n");
    EXPECT_EQ(capture.output(), "");
}

TEST(ServiceProviderRegistryTest, KeepsTheFirstOfOneName) {
    ServiceProviderRegistry registry;
    OutputCapture capture;
    registry.registerProvider("A", &makeProvider);
    registry.registerProvider("A", &makeNone);
    EXPECT_EQ(capture.errors(), "trying register service provider A\n"
                                "registering service provider\n"
                                "trying register service provider A\n"
                                "service provider registered\n");
    EXPECT_TRUE(created(registry, "A"));
}

TEST(ServiceProviderRegistryTest, StoresNothingWithoutACreator) {
    ServiceProviderRegistry registry;
    {
        OutputCapture capture;
        registry.registerProvider("A", ServiceProviderCreator());
        registry.registerProvider("", ServiceProviderCreator());
        EXPECT_EQ(capture.errors(), "trying register service provider A\n"
                                    "no create provider callback given\n"
                                    "trying register service provider \n"
                                    "no create provider callback given\n");
    }
    EXPECT_EQ(listing(registry), "");
    EXPECT_EQ(registry.create("A"), nullptr);
}

TEST(ServiceProviderRegistryTest, TakesAnEmptyNameWithAWord) {
    ServiceProviderRegistry registry;
    {
        OutputCapture capture;
        registry.registerProvider("", &makeProvider);
        registry.registerProvider("", &makeProvider);
        EXPECT_EQ(capture.errors(), "trying register service provider \n"
                                    "no provider name given\n"
                                    "registering service provider\n"
                                    "trying register service provider \n"
                                    "no provider name given\n"
                                    "service provider registered\n");
    }
    EXPECT_EQ(listing(registry), "service provider  ((nil))\n");
    EXPECT_TRUE(created(registry, ""));
}

TEST(ServiceProviderRegistryTest, ListsByName) {
    ServiceProviderRegistry registry;
    OutputCapture capture;
    for (const char* name :
         {"b", "TranscoderService", "DappleRenderService", "a", "TranscoderLegacyService"})
        registry.registerProvider(name, &makeProvider);
    capture.errors();
    EXPECT_EQ(listing(registry), "service provider DappleRenderService ((nil))\n"
                                 "service provider TranscoderLegacyService ((nil))\n"
                                 "service provider TranscoderService ((nil))\n"
                                 "service provider a ((nil))\n"
                                 "service provider b ((nil))\n");
}

TEST(ServiceProviderRegistryTest, GivesNullWithoutAWordForAnUnknownName) {
    ServiceProviderRegistry registry;
    OutputCapture capture;
    EXPECT_EQ(registry.create("A"), nullptr);
    EXPECT_EQ(capture.errors() + capture.output(), "");
}

TEST(ServiceProviderRegistryTest, MakesANewProviderEachTime) {
    ServiceProviderRegistry registry;
    OutputCapture capture;
    registry.registerProvider("A", &makeProvider);
    registry.registerProvider("N", &makeNone);
    const auto first = created(registry, "A");
    const auto second = created(registry, "A");
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
    EXPECT_NE(first, second);
    EXPECT_EQ(registry.create("N"), nullptr);
    capture.errors();
    EXPECT_EQ(listing(registry), "service provider A ((nil))\nservice provider N ((nil))\n");
}

TEST(ServiceProviderRegistryTest, RegistrationObjectEntersTheOneInstance) {
    OutputCapture capture;
    const ServiceProviderRegistration registration("RegistryTestProvider", &makeProvider);
    EXPECT_EQ(capture.errors(), "trying register service provider RegistryTestProvider\n"
                                "registering service provider\n");
    EXPECT_EQ(&ServiceProviderRegistry::the(), &ServiceProviderRegistry::the());
    EXPECT_TRUE(created(ServiceProviderRegistry::the(), "RegistryTestProvider"));
}

} // namespace
} // namespace OstrandService

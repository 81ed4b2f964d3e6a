#include "host/ProviderName.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

TEST(ProviderNameTest, IsTheFileName) {
    EXPECT_EQ(providerNameOf("TranscoderService"), "TranscoderService");
    EXPECT_EQ(providerNameOf("/usr/bin/DappleRenderService"), "DappleRenderService");
    EXPECT_EQ(providerNameOf("./x/TranscoderLegacyService.exe"), "TranscoderLegacyService");
    EXPECT_EQ(providerNameOf("/OstrandService/x.exe/Foo"), "Foo");
}

TEST(ProviderNameTest, FallsBackToTheTranscoder) {
    EXPECT_EQ(providerNameOf(""), "TranscoderService");
    EXPECT_EQ(providerNameOf("OstrandService"), "TranscoderService");
    EXPECT_EQ(providerNameOf("bin/OstrandService.exe"), "TranscoderService");
    EXPECT_EQ(providerNameOf(".exe"), "TranscoderService");
}

TEST(ProviderNameTest, CutsTheFamilyNameOnceAndAnywhere) {
    EXPECT_EQ(providerNameOf("OstrandServiceTranscoderService.exe"), "TranscoderService");
    EXPECT_EQ(providerNameOf("FooOstrandServiceBar"), "FooBar");
    EXPECT_EQ(providerNameOf("OstrandServiceOstrandService"), "OstrandService");
    EXPECT_EQ(providerNameOf("aOstrandServiceOstrandServiceb"), "aOstrandServiceb");
}

TEST(ProviderNameTest, CutsTheLastEndingOnceAndAnywhere) {
    EXPECT_EQ(providerNameOf("Foo.exe.exe"), "Foo.exe");
    EXPECT_EQ(providerNameOf("Foo.exe.txt"), "Foo.txt");
    EXPECT_EQ(providerNameOf("a.exeb.exec"), "a.exebc");
}

// The ending goes first, which may leave the family name behind it.
TEST(ProviderNameTest, CutsTheEndingBeforeTheFamilyName) {
    EXPECT_EQ(providerNameOf("Ostrand.exeService"), "TranscoderService");
    EXPECT_EQ(providerNameOf(".exOstrandServicee"), ".exe");
}

TEST(ProviderNameTest, MindsCase) {
    EXPECT_EQ(providerNameOf("ostrandservice.exe"), "ostrandservice");
    EXPECT_EQ(providerNameOf("OstrandService.EXE"), ".EXE");
}

} // namespace
} // namespace OstrandService

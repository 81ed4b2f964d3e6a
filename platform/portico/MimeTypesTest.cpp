#include "platform/portico/MimeTypes.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace Portico {
namespace {

class KnownType : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(KnownType, goesByTheExtension) {
    const std::string extension = GetParam().first;
    EXPECT_EQ(MimeTypes::the().identify("index." + extension), GetParam().second);
    EXPECT_EQ(MimeTypes::the().identify("/cache/p.q/1/a.b." + extension), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(
    All, KnownType,
    testing::Values(std::pair("x3d", "model/x3d+xml"), std::pair("x3db", "model/x3d+binary"),
                    std::pair("x3dv", "model/x3d+vrml"), std::pair("gltf", "model/gltf+json"),
                    std::pair("glb", "model/gltf-binary"), std::pair("obj", "model/obj"),
                    std::pair("stl", "model/stl"), std::pair("html", "text/html"),
                    std::pair("htm", "text/html"), std::pair("txt", "text/plain"),
                    std::pair("log", "text/plain"), std::pair("css", "text/css"),
                    std::pair("js", "text/javascript"), std::pair("json", "application/json"),
                    std::pair("xml", "application/xml"), std::pair("png", "image/png"),
                    std::pair("jpeg", "image/jpeg"), std::pair("jpg", "image/jpeg"),
                    std::pair("gif", "image/gif"), std::pair("webp", "image/webp"),
                    std::pair("svg", "image/svg+xml"), std::pair("ico", "image/x-icon"),
                    std::pair("wasm", "application/wasm"), std::pair("zip", "application/zip"),
                    std::pair("pdf", "application/pdf"), std::pair("GlTf", "model/gltf+json")));

TEST(MimeTypes, fallsBackToBytes) {
    const MimeTypes& types = MimeTypes::the();
    EXPECT_EQ(types.identify("a.no-such-extension"), "application/octet-stream");
    EXPECT_EQ(types.identify(""), "application/octet-stream");
    EXPECT_EQ(types.identify("html"), "application/octet-stream");
    EXPECT_EQ(types.identify("/a.html/b"), "application/octet-stream");
    EXPECT_EQ(types.identify("a.html."), "application/octet-stream");
    EXPECT_EQ(types.identify("a.html/"), "application/octet-stream");
}

TEST(MimeTypes, handsOutTheSameTextAgain) {
    EXPECT_EQ(&MimeTypes::the().identify("a.glb"), &MimeTypes::the().identify("b.GLB"));
    EXPECT_EQ(&MimeTypes::the().identify("a"), &MimeTypes::the().identify("b.??"));
}

} // namespace
} // namespace Portico

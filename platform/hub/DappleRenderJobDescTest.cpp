#include "platform/hub/DappleRenderJobDesc.h"

#include "platform/hub/Json.h"
#include "platform/hub/TestFolder.h"

#include <gtest/gtest.h>

namespace {

using OstrandService::DappleRenderJobDesc;

void parse(DappleRenderJobDesc& desc, const std::string& text) {
    picojson::value value;
    ASSERT_TRUE(OstrandHub::parseJson(text, value)) << text;
    desc.parse(value);
}

TEST(DappleRenderJobDesc, HasDefaults) {
    const TestLog log;
    DappleRenderJobDesc desc;
    EXPECT_FALSE(desc.valid);
    parse(desc, "{}");
    EXPECT_TRUE(desc.valid);
    EXPECT_EQ(desc.getClass(), "opengl");
    EXPECT_EQ(desc.getOutput(), "framebuffer");
    EXPECT_TRUE(log.lines().empty());
}

TEST(DappleRenderJobDesc, ReadsItsKeysAndIgnoresOthers) {
    DappleRenderJobDesc desc;
    parse(desc, R"({"class":"vulkan","output":"","other":[1],"environment":{}})");
    EXPECT_TRUE(desc.valid);
    EXPECT_EQ(desc.getClass(), "vulkan");
    EXPECT_EQ(desc.getOutput(), "");
}

TEST(DappleRenderJobDesc, RendererGetsNoVariable) {
    DappleRenderJobDesc desc;
    parse(desc, R"({"environment":{"LD_PRELOAD":"x"}})");
    EXPECT_TRUE(desc.valid);
    EXPECT_TRUE(desc.environment.empty());
}

TEST(DappleRenderJobDesc, RefusesWrongTypes) {
    const std::pair<const char*, const char*> cases[] = {
        {"[]", "the description is no object"},
        {"null", "the description is no object"},
        {R"({"class":1})", "class is no string"},
        {R"({"class":null})", "class is no string"},
        {R"({"output":{}})", "output is no string"},
        {R"({"environment":null})", "environment is no object of strings"},
        {R"({"environment":["A=1"]})", "environment is no object of strings"},
        {R"({"environment":{"A":1}})", "environment is no object of strings"},
        {R"({"environment":{"A":null}})", "environment is no object of strings"}};
    for (const auto& [text, reason] : cases) {
        const TestLog log;
        DappleRenderJobDesc desc;
        parse(desc, text);
        EXPECT_FALSE(desc.valid) << text;
        EXPECT_EQ(log.lines(), std::vector<std::string>{std::string("job refused: ") + reason});
    }
}

} // namespace

#include "platform/hub/FormatDef.h"

#include "platform/hub/TranscoderJobDesc.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;
using OstrandService::FormatDef;
using OstrandService::OutputType;

TEST(FormatDef, TableIsTheHubs) {
    const std::string names[] = {"x3d", "x3db", "html", "x3dv", "gltf", "glb"};
    for (std::uint32_t i = 0; i < 6; ++i) {
        const FormatDef& format = OstrandService::formatOf(static_cast<OutputType>(i));
        EXPECT_EQ(format.name, names[i]);
        EXPECT_EQ(format.toolSwitch, "--" + names[i]);
        EXPECT_EQ(format.extension, names[i]);
        OutputType found = OutputType::Glb;
        EXPECT_TRUE(OstrandService::findFormat(names[i], found));
        EXPECT_EQ(static_cast<std::uint32_t>(found), i);
    }
}

TEST(FormatDef, UnknownNamesLeaveTheTypeAlone) {
    OutputType found = OutputType::Html;
    for (const std::string& name : {""s, "X3D"s, "x3"s, " x3d"s, "x3d "s, "obj"s})
        EXPECT_FALSE(OstrandService::findFormat(name, found)) << name;
    EXPECT_EQ(found, OutputType::Html);
}

TEST(FormatDef, NumberOutOfRangeIsTheDefault) {
    EXPECT_EQ(OstrandService::formatOf(static_cast<OutputType>(6)).name, "x3d");
    EXPECT_EQ(OstrandService::formatOf(static_cast<OutputType>(0xffffffff)).name, "x3d");
}

TEST(FormatDef, DescriptionsHandOutTheSameRecord) {
    EXPECT_EQ(&OstrandService::TranscoderJobDesc::format(OutputType::Glb),
              &OstrandService::formatOf(OutputType::Glb));
}

} // namespace

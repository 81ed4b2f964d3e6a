#include "providers/legacy/FettleCommand.h"

#include "platform/hub/Json.h"
#include "providers/legacy/JobRecord.h"

#include <gtest/gtest.h>
#include <utility>

namespace OstrandService {
namespace {

using Words = std::vector<std::string>;

JobRecord described(const std::string& json) {
    JobRecord record("");
    EXPECT_TRUE(record.parseJobText(json));
    return record;
}

struct Row {
    const char* name;
    Words arguments;
};

class OperationTable : public ::testing::TestWithParam<Row> {};

TEST_P(OperationTable, AloneAddsItsRow) {
    EXPECT_EQ(operationArguments(GetParam().name), GetParam().arguments);
}

INSTANTIATE_TEST_SUITE_P(
    All, OperationTable,
    ::testing::Values(
        Row{"toImageGeo", {"-g", "imgGeo/:is"}}, Row{"toBinGeo", {"-G", "binGeo/:sacp"}},
        Row{"toBinGeoFull", {"-G", "binGeo/:is"}}, Row{"toPopGeo", {"-K", "popGeo/:a"}},
        Row{"toSRC", {"-Y", "encodingPreset(CMP1)"}}, Row{"reuse", {"-u"}},
        Row{"collapse", {"-F", "Scene:\"maxTris(10000000),mostUsedMaterial(true)\""}},
        Row{"restructure", {"-F", "Scene:\"cacheopt(true)\""}},
        Row{"restructure_atlas", {"-F", "Scene:\"cacheopt(true),maxTextureSize(4096)\""}},
        Row{"collapse_restructure", {"-F", "Scene:\"cacheopt(true),mostUsedMaterial(true)\""}},
        Row{"collapse+id", {"-F", "Scene:\"maxTris(10000000),mostUsedMaterial(true),idmap(id)\""}},
        Row{"restructure+id", {"-F", "Scene:\"cacheopt(true),idmap(id)\""}},
        Row{"restructure_atlas+id",
            {"-F", "Scene:\"cacheopt(true),maxTextureSize(4096),idmap(id)\""}},
        Row{"collapse_restructure+id",
            {"-F", "Scene:\"cacheopt(true),mostUsedMaterial(true),idmap(id)\""}}));

class IdMapping : public ::testing::TestWithParam<const char*> {};

TEST_P(IdMapping, ChangesOnlyWhatStandsBehindIt) {
    const std::string mapping = GetParam();
    const Words own = operationArguments(mapping);
    EXPECT_EQ(operationArguments("toBinGeo,toBinGeoFull," + mapping + ",toBinGeo,toBinGeoFull"),
              (Words{"-G", "binGeo/:sacp", "-G", "binGeo/:is", own[0], own[1], "-G",
                     "binGeo/:sacpd", "-G", "binGeo/:isd"}));
}

INSTANTIATE_TEST_SUITE_P(All, IdMapping,
                         ::testing::Values("collapse+id", "restructure+id", "restructure_atlas+id",
                                           "collapse_restructure+id"));

TEST(Operations, UnknownEmptyAndMisspeltPiecesAddNothing) {
    EXPECT_EQ(operationArguments(""), Words());
    EXPECT_EQ(operationArguments("nothing,,toPopGeo"), (Words{"-K", "popGeo/:a"}));
    EXPECT_EQ(operationArguments(" reuse,Reuse,reuse "), Words());
    EXPECT_EQ(operationArguments("reuse,reuse"), (Words{"-u", "-u"}));
}

TEST(FettleArguments, PlainJob) {
    EXPECT_EQ(fettleArguments(described(R"({"resource":"a/b c.x3d"})"), "fettle.exe"),
              (Words{"fettle.exe", "-i", "\"a/b c.x3d\"", "-J", "statistics.html", "--x3d",
                     "index.x3d"}));
}

TEST(FettleArguments, EverythingInOrder) {
    const JobRecord record = described(
        R"({"resource":"r","suffix":"x","options":"duplicateTextures,screenshot","format":"glb",)"
        R"("ops":"reuse","annotations":[["n","v"],["m","w"]]})");
    EXPECT_EQ(
        fettleArguments(record, "tool"),
        (Words{"tool", "-i", "\"r\":x", "-J", "statistics.html", "-V", "-C", "n:MetadataString:v",
               "-C", "m:MetadataString:w", "-u", "-k", "--glb", "index.glb"}));
}

} // namespace
} // namespace OstrandService

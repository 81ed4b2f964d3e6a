#include "platform/hub/UploadName.h"

#include "platform/hub/Uuid.h"

#include <gtest/gtest.h>

namespace {

using OstrandHub::isUuid;
using OstrandService::isUpload;
using OstrandService::uploadFileName;

const std::string uuid = "0123abcd-89EF-4000-8000-0123456789ab";

TEST(Uuid, HasItsForm) {
    EXPECT_TRUE(isUuid(uuid));
    EXPECT_FALSE(isUuid(""));
    EXPECT_FALSE(isUuid(uuid.substr(1)));
    EXPECT_FALSE(isUuid(uuid + "0"));
    EXPECT_FALSE(isUuid("{" + uuid.substr(2) + "}"));
    EXPECT_FALSE(isUuid("0123abcd089EF-4000-8000-0123456789ab"));
    EXPECT_FALSE(isUuid("0123abcg-89EF-4000-8000-0123456789ab"));
    EXPECT_FALSE(isUuid("0123abc--89EF-4000-8000-0123456789ab"));
}

TEST(Uuid, RandomOnesAreLowerCaseAndDiffer) {
    const std::string one = OstrandHub::randomUuid();
    EXPECT_TRUE(isUuid(one));
    EXPECT_EQ(one.find_first_of("ABCDEF"), std::string::npos);
    EXPECT_NE(one, OstrandHub::randomUuid());
}

TEST(UploadName, IsAnUploadOnlyWithAUuidBehindTheLastAt) {
    EXPECT_TRUE(isUpload("a.x3d@" + uuid));
    EXPECT_TRUE(isUpload("@" + uuid));
    EXPECT_FALSE(isUpload("a.x3d"));
    EXPECT_FALSE(isUpload(uuid));
    EXPECT_FALSE(isUpload("http://user@host/a.x3d"));
    EXPECT_FALSE(isUpload("a@" + uuid + "@host"));
    EXPECT_FALSE(isUpload("a@" + uuid + " "));
}

TEST(UploadName, IsTheLastPathComponent) {
    EXPECT_EQ(uploadFileName("a.x3d@" + uuid), "a.x3d");
    EXPECT_EQ(uploadFileName("../../etc/a.x3d@" + uuid), "a.x3d");
    EXPECT_EQ(uploadFileName("/a@b@" + uuid), "a@b");
    EXPECT_EQ(uploadFileName("..x@" + uuid), "..x");
    EXPECT_EQ(uploadFileName("...@" + uuid), "...");
}

TEST(UploadName, IsEmptyWhereThereIsNoFileName) {
    EXPECT_EQ(uploadFileName("@" + uuid), "");
    EXPECT_EQ(uploadFileName("a/@" + uuid), "");
    EXPECT_EQ(uploadFileName(".@" + uuid), "");
    EXPECT_EQ(uploadFileName("..@" + uuid), "");
    EXPECT_EQ(uploadFileName("a/..@" + uuid), "");
    EXPECT_EQ(uploadFileName("a.x3d"), "");
}

} // namespace

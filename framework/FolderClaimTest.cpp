#include "framework/FolderClaim.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <memory>

namespace OstrandService {
namespace {

TEST(FolderClaim, IsOneObjectsAtATime) {
    const Support::TemporaryFolder folder;
    auto first = std::make_unique<FolderClaim>();
    FolderClaim second;
    EXPECT_TRUE(first->take(folder.path()));
    EXPECT_FALSE(second.take(folder.path()));
    EXPECT_TRUE(first->take(folder.path()));
    first.reset();
    EXPECT_TRUE(second.take(folder.path()));
}

TEST(FolderClaim, LeavesOneFolderForAnother) {
    const Support::TemporaryFolder folder;
    FolderClaim first;
    FolderClaim second;
    EXPECT_TRUE(first.take(folder.makeFolder("a")));
    EXPECT_TRUE(first.take(folder.makeFolder("b")));
    EXPECT_TRUE(second.take(folder.path("a")));
    EXPECT_FALSE(second.take(folder.path("b")));
}

TEST(FolderClaim, WhatIsNoFolderIsNobodys) {
    const Support::TemporaryFolder folder;
    FolderClaim first;
    FolderClaim second;
    EXPECT_TRUE(first.take(folder.path("missing")));
    EXPECT_TRUE(second.take(folder.path("missing")));
}

} // namespace
} // namespace OstrandService

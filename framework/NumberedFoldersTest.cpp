#include "framework/NumberedFolders.h"

#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace OstrandService {
namespace {

template <typename Number>
using Folders = std::vector<std::pair<Number, std::string>>;

class NumberedFoldersTest : public ::testing::Test {
protected:
    Support::TemporaryFolder folder;
};

TEST_F(NumberedFoldersTest, SortsByNumber) {
    for (const char* name : {"10", "9", "-3", "+7", "07"})
        folder.makeFolder(name);
    const std::string root = folder.path() + "/";
    EXPECT_EQ(numberedFolders<std::int32_t>(folder.path()),
              (Folders<std::int32_t>{{-3, root + "-3"},
                                     {7, root + "+7"},
                                     {7, root + "07"},
                                     {9, root + "9"},
                                     {10, root + "10"}}));
}

TEST_F(NumberedFoldersTest, LeavesOutWhatIsNoFolderOrNoNumber) {
    folder.write("1", "a file");
    boost::filesystem::create_symlink("nowhere", folder.path("2"));
    for (const char* name : {"x", "3x", " 4", "5 ", "0x6", "7.0", "2147483648", ".8"})
        folder.makeFolder(name);
    folder.makeFolder("9");
    boost::filesystem::create_symlink("9", folder.path("11"));
    EXPECT_EQ(numberedFolders<std::int32_t>(folder.path()),
              (Folders<std::int32_t>{{9, folder.path("9")}, {11, folder.path("11")}}));
    EXPECT_EQ(numberedFolders<std::int64_t>(folder.path()).back().first, 2147483648);
}

TEST_F(NumberedFoldersTest, ThrowsWhereTheFolderCannotBeRead) {
    EXPECT_ANY_THROW(numberedFolders<std::int32_t>(folder.path("none")));
    folder.write("file", "");
    EXPECT_ANY_THROW(numberedFolders<std::int32_t>(folder.path("file")));
}

} // namespace
} // namespace OstrandService

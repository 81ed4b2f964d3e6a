#include "framework/ResultFile.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace OstrandService {
namespace {

class ResultFileTest : public ::testing::Test {
protected:
    std::string readOrFail(const std::string& name) const {
        std::string body = "former";
        EXPECT_TRUE(ResultFile::read(folder.path(name), body)) << name;
        return body;
    }

    Support::TemporaryFolder folder;
};

TEST_F(ResultFileTest, ReadsEverySizeWhole) {
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 8192u, 65536u, 1000003u}) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            text[i] = static_cast<char>(i % 251);
        folder.write("file", text);
        EXPECT_TRUE(readOrFail("file") == text) << size;
        EXPECT_TRUE(ResultFile::isReadable(folder.path("file")));
    }
}

TEST_F(ResultFileTest, RefusesWhatIsNoRegularFileAndDoesNotBlock) {
    ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
    folder.makeFolder("sub");
    for (const std::string& path :
         {folder.path("pipe"), folder.path("sub"), folder.path("none"),
          folder.path(std::string(5000, 'x')), std::string(), std::string("/dev/null")}) {
        std::string body = "former";
        EXPECT_FALSE(ResultFile::read(path, body)) << path;
        EXPECT_EQ(body, "") << path;
        EXPECT_FALSE(ResultFile::isReadable(path)) << path;
    }
}

} // namespace
} // namespace OstrandService

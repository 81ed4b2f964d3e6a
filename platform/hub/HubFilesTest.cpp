#include "platform/hub/HubFiles.h"

#include "platform/hub/TestFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

class HubFiles : public testing::Test {
protected:
    /// The result of reading `name`, and in `text` what was read.
    bool read(const std::string& name) {
        text = "before";
        return OstrandHub::getFileContents(folder.path(name).c_str(), text);
    }

    TestFolder folder;
    std::string text;
};

TEST_F(HubFiles, ReadsEverySizeExactly) {
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 65535U, 65536U, 65537U, 300000U,
                                   (4U << 20) - 1, 4U << 20, (4U << 20) + 1, 9U << 20}) {
        std::string written(size, 'x');
        for (std::size_t at = 0; at < size; at += 4093)
            written[at] = static_cast<char>(at % 251);
        folder.write("file", written);
        ASSERT_TRUE(read("file")) << size;
        EXPECT_TRUE(text == written) << size;
    }
}

TEST_F(HubFiles, KeepsZeroBytes) {
    folder.write("file", std::string("a\0b\n", 4));
    ASSERT_TRUE(read("file"));
    EXPECT_EQ(text, std::string("a\0b\n", 4));
}

TEST_F(HubFiles, ReadsFilesThatTellNoSize) {
    ASSERT_TRUE(OstrandHub::getFileContents("/proc/self/status", text));
    EXPECT_NE(text.find("VmRSS:"), std::string::npos);
}

TEST_F(HubFiles, FollowsLinks) {
    folder.write("file", "x");
    std::filesystem::create_symlink("file", folder.path("link"));
    ASSERT_TRUE(read("link"));
    EXPECT_EQ(text, "x");
}

TEST_F(HubFiles, RefusesWhatIsNoRegularFile) {
    std::filesystem::create_directory(folder.path("folder"));
    EXPECT_FALSE(read("folder"));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(read("missing"));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(OstrandHub::getFileContents("/dev/null", text));
    EXPECT_FALSE(OstrandHub::getFileContents(nullptr, text));
}

TEST_F(HubFiles, DoesNotWaitForTheWriterOfAFifo) {
    ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(read("fifo"));
    EXPECT_EQ(text, "");
}

class HubDataPath : public testing::Test {
protected:
    HubDataPath() {
        for (const char* name : {"OSTRANDHUB_DATA", "XDG_DATA_HOME", "HOME"})
            ::unsetenv(name);
    }
    static void set(const char* name, const char* value) { ::setenv(name, value, 1); }
};

TEST_F(HubDataPath, TakesTheFirstVariableThatIsSet) {
    EXPECT_EQ(OstrandHub::getHubDataPath(), "/var/lib/ostrandhub");
    set("HOME", "/home/u");
    EXPECT_EQ(OstrandHub::getHubDataPath(), "/home/u/.local/share/ostrandhub");
    set("XDG_DATA_HOME", "/data");
    EXPECT_EQ(OstrandHub::getHubDataPath(), "/data/ostrandhub");
    set("OSTRANDHUB_DATA", "/own");
    EXPECT_EQ(OstrandHub::getHubDataPath(), "/own");
}

TEST_F(HubDataPath, EmptyVariablesCountAsUnset) {
    set("OSTRANDHUB_DATA", "");
    set("XDG_DATA_HOME", "");
    set("HOME", "/home/u");
    EXPECT_EQ(OstrandHub::getHubDataPath(), "/home/u/.local/share/ostrandhub");
    set("HOME", "");
    EXPECT_EQ(OstrandHub::getHubDataPath(), "/var/lib/ostrandhub");
}

} // namespace

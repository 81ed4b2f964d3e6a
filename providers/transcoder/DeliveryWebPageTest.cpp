#include "providers/transcoder/DeliveryWebPage.h"

#include "providers/transcoder/TranscoderServiceProviderTest.h"
#include "tests/support/DeliveryProbe.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace OstrandService {
namespace {

using Support::hasCors;
using Support::hasNoCors;
using Support::headerOf;
using Support::makeRequest;

class DeliveryWebPageTest : public TranscoderServiceProviderTest {
protected:
    Reply ask(const std::string& method, const std::string& uri) const {
        return probe.ask(method, uri);
    }

    std::uint32_t codeOf(const std::string& uri) const { return probe.codeOf(uri); }

    Support::DeliveryProbe probe{makeDeliveryPage("", folder.path())};
    std::unique_ptr<Portico::WebPage>& page = probe.page;
};

TEST_F(DeliveryWebPageTest, ServesAFileWithItsType) {
    folder.write("P/1/index.x3d", "<X3D/>");
    EXPECT_EQ(codeOf("/P/1/index.x3d"), 200u);
    const Reply get = ask("GET", "/P/1/index.x3d");
    EXPECT_EQ(get.body(), "<X3D/>");
    EXPECT_EQ(headerOf(get, "Content-Type"), "model/x3d+xml");
    EXPECT_EQ(get.header().entries().size(), 3u);
    const Reply head = ask("HEAD", "/P/1/index.x3d");
    EXPECT_EQ(headerOf(head, "Content-Type"), "model/x3d+xml");
    EXPECT_FALSE(head.header().hasParam("Content-Length"));
}

TEST_F(DeliveryWebPageTest, ServesEverySizeWhole) {
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 8192u, 1000003u}) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            text[i] = static_cast<char>(i % 253);
        folder.write("P/1/a.bin", text);
        EXPECT_TRUE(ask("GET", "/P/1/a.bin").body() == text) << size;
        EXPECT_EQ(codeOf("/P/1/a.bin"), 200u) << size;
    }
}

TEST_F(DeliveryWebPageTest, TellsToWaitBesideTheMarkerAndOneFolderDown) {
    folder.write("P/1/.partial", "");
    folder.write("P/1/index.x3d", "half");
    folder.write("P/1/binGeo/a.bin", "half");
    folder.write("P/1/binGeo/sub/a.bin", "served");
    EXPECT_EQ(codeOf("/P/1/index.x3d"), 202u);
    EXPECT_EQ(codeOf("/P/1/none"), 202u);
    EXPECT_EQ(codeOf("/P/1/.partial"), 202u);
    EXPECT_EQ(codeOf("/P/1/binGeo"), 202u);
    EXPECT_EQ(codeOf("/P/1/binGeo/a.bin"), 202u);
    EXPECT_EQ(codeOf("/P/1/binGeo/none"), 202u);
    EXPECT_EQ(codeOf("/P/1/binGeo/sub/a.bin"), 200u);
    EXPECT_EQ(codeOf("/P/1/binGeo/sub/none"), 404u);
    EXPECT_EQ(codeOf("/P/2/index.x3d"), 404u);
}

// The job's own URI is a name, not a resource; with a slash behind it the marker is beside it.
TEST_F(DeliveryWebPageTest, RefusesFolders) {
    folder.write("P/1/index.x3d", "x");
    EXPECT_EQ(codeOf("/P/1"), 403u);
    EXPECT_EQ(codeOf("/P/1/"), 403u);
    EXPECT_EQ(codeOf("/P"), 403u);
    EXPECT_EQ(codeOf("/"), 403u);
    EXPECT_EQ(codeOf(""), 403u);
    folder.write("P/1/.partial", "");
    EXPECT_EQ(codeOf("/P/1"), 403u);
    EXPECT_EQ(codeOf("/P/1/"), 202u);
}

TEST_F(DeliveryWebPageTest, FindsNothingWhereThereIsNoReadableFile) {
    folder.write("P/1/file", "x");
    ASSERT_EQ(::mkfifo(folder.path("P/1/pipe").c_str(), 0600), 0);
    boost::filesystem::create_symlink("loop", folder.path("P/1/loop"));
    boost::filesystem::create_symlink("/dev/null", folder.path("P/1/device"));
    EXPECT_EQ(codeOf("/P/1/none"), 404u);
    EXPECT_EQ(codeOf("/P/1/file/below"), 404u);
    EXPECT_EQ(codeOf("/P/1/file/"), 404u);
    EXPECT_EQ(codeOf("/P/1/pipe"), 404u);
    EXPECT_EQ(codeOf("/P/1/loop"), 404u);
    EXPECT_EQ(codeOf("/P/1/loop/x"), 404u);
    EXPECT_EQ(codeOf("/P/1/device"), 404u);
    EXPECT_EQ(codeOf("/P/1/" + std::string(300, 'n')), 404u);
    EXPECT_EQ(codeOf("/" + std::string(300, 'n') + "/a/b"), 404u);
    EXPECT_EQ(codeOf("/" + std::string(20000, 'n')), 404u);
}

TEST_F(DeliveryWebPageTest, LeavesOtherMethodsAlone) {
    folder.write("P/1/file", "x");
    for (const char* method : {"POST", "OPTIONS", "PUT", "DELETE", "get", "head", ""}) {
        auto request = makeRequest(method, "/P/1/file");
        Reply reply;
        reply.body() = "former";
        EXPECT_TRUE(page->create(request, reply));
        EXPECT_EQ(reply.code, 200u) << method;
        EXPECT_EQ(reply.body(), "former") << method;
        EXPECT_TRUE(reply.header().entries().empty()) << method;
    }
}

TEST_F(DeliveryWebPageTest, OriginIsAnythingWithoutOne) {
    Reply reply;
    EXPECT_TRUE(page->create(makeRequest("GET", "/none"), reply));
    EXPECT_TRUE(hasCors(reply));
}

TEST_F(DeliveryWebPageTest, CutsItsPrefix) {
    folder.write("P/1/file", "x");
    page = makeDeliveryPage("/results", folder.path());
    EXPECT_EQ(codeOf("/results/P/1/file"), 200u);
    EXPECT_EQ(codeOf("/P/1/file"), 404u);
    EXPECT_EQ(codeOf("/result"), 404u);
    EXPECT_EQ(codeOf(""), 404u);
    page = makeDeliveryPage("/results/", folder.path() + "/");
    EXPECT_EQ(codeOf("/results/P/1/file"), 200u);
}

TEST_F(DeliveryWebPageTest, ServesTheJobsOwnFilesToo) {
    folder.write("P/1/.status", "{}");
    EXPECT_EQ(codeOf("/P/1/.status"), 200u);
    EXPECT_EQ(headerOf(ask("GET", "/P/1/.status"), "Content-Type"), "application/octet-stream");
}

TEST_F(DeliveryWebPageTest, CloneServesTheSame) {
    folder.write("P/1/file", "x");
    page.reset(makeDeliveryPage("/r", folder.path())->clone());
    EXPECT_EQ(codeOf("/r/P/1/file"), 200u);
    const auto request = makeRequest("GET", "/r/P/1/file");
    Reply reply;
    EXPECT_EQ(page->create(nullptr, request, reply), 1);
    EXPECT_EQ(reply.body(), "x");
}

} // namespace
} // namespace OstrandService

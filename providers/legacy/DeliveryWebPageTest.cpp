#include "providers/legacy/DeliveryWebPage.h"

#include "providers/legacy/MimeExtensions.h"
#include "providers/legacy/TranscoderLegacyServiceProviderTest.h"
#include "tests/support/DeliveryProbe.h"

#include <boost/filesystem.hpp>
#include <csignal>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandService {

std::unique_ptr<Portico::WebPage>
TranscoderLegacyServiceProviderTest::makeDeliveryPage(const std::string& prefix,
                                                      const std::string& root) {
    return std::make_unique<TranscoderLegacyServiceProvider::DeliveryWebPage>(prefix, root);
}

namespace {

using Support::hasCors;
using Support::headerOf;
using Support::makeRequest;

class LegacyDeliveryTest : public TranscoderLegacyServiceProviderTest {
protected:
    Reply ask(const std::string& method, const std::string& uri) const {
        return probe.ask(method, uri);
    }

    std::uint32_t codeOf(const std::string& uri) const { return probe.codeOf(uri); }

    Support::DeliveryProbe probe{makeDeliveryPage("", folder.path())};
    std::unique_ptr<Portico::WebPage>& page = probe.page;
};

TEST_F(LegacyDeliveryTest, ServesAFileWithItsType) {
    folder.write("1/index.x3d", "<X3D/>");
    EXPECT_EQ(codeOf("/1/index.x3d"), 200u);
    const Reply get = ask("GET", "/1/index.x3d");
    EXPECT_EQ(get.body(), "<X3D/>");
    EXPECT_EQ(headerOf(get, "Content-Type"), "model/x3d+xml");
    EXPECT_EQ(get.header().entries().size(), 3u);
}

TEST_F(LegacyDeliveryTest, ServesEverySizeWhole) {
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 1000003u}) {
        std::string text(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            text[i] = static_cast<char>(i % 251);
        folder.write("f.bin", text);
        EXPECT_EQ(ask("GET", "/f.bin").body(), text) << size;
    }
}

TEST_F(LegacyDeliveryTest, ForgetsWhatStoodInTheBody) {
    folder.write("f", "new");
    Reply reply;
    reply.body() = "old";
    page->create(makeRequest("GET", "/f"), reply);
    EXPECT_EQ(reply.body(), "new");
}

TEST_F(LegacyDeliveryTest, TellsToWaitByTheMarkerInTheFilesOwnFolder) {
    folder.write("1/index.x3d", "early");
    folder.write("1/.partial", "");
    folder.write("1/binGeo/a.bin", "data");
    for (const char* uri : {"/1/index.x3d", "/1/nothing", "/1/.meta", "/1/.partial", "/1/binGeo",
                            "/1/", "//1/index.x3d"})
        EXPECT_EQ(codeOf(uri), 202u) << uri;
    EXPECT_EQ(codeOf("/1/binGeo/a.bin"), 200u);
    EXPECT_EQ(codeOf("/1/binGeo/nothing"), 404u);
    EXPECT_EQ(codeOf("/1"), 404u) << "the folder itself: its marker is not beside it";
    EXPECT_EQ(codeOf("/2/index.x3d"), 404u);
    folder.write("1/binGeo/.partial", "");
    EXPECT_EQ(codeOf("/1/binGeo/a.bin"), 202u);
}

TEST_F(LegacyDeliveryTest, AMarkerInTheRootHoldsUpWhatLiesThere) {
    folder.write("f", "text");
    folder.write("1/f", "text");
    folder.write(".partial", "");
    EXPECT_EQ(codeOf("/f"), 202u);
    EXPECT_EQ(codeOf("/"), 202u);
    EXPECT_EQ(codeOf("/1/f"), 200u);
}

TEST_F(LegacyDeliveryTest, AnyMarkerThatExistsCounts) {
    folder.write("1/f", "text");
    ASSERT_EQ(::symlink("/nowhere/at/all", folder.path("1/.partial").c_str()), 0);
    EXPECT_EQ(codeOf("/1/f"), 200u) << "a dangling link";
    folder.write("2/f", "text");
    folder.makeFolder("2/.partial");
    EXPECT_EQ(codeOf("/2/f"), 202u) << "a folder";
    folder.write("3/f", "text");
    ASSERT_EQ(::symlink("..", folder.path("3/.partial").c_str()), 0);
    EXPECT_EQ(codeOf("/3/f"), 202u) << "a link to something";
    folder.write("4/f", "text");
    ASSERT_EQ(::symlink(".partial", folder.path("4/.partial").c_str()), 0);
    EXPECT_EQ(codeOf("/4/f"), 200u) << "a link to itself";
}

TEST_F(LegacyDeliveryTest, ServesRegularFilesAlone) {
    folder.makeFolder("1/binGeo");
    EXPECT_EQ(codeOf("/1/binGeo"), 404u);
    EXPECT_EQ(codeOf("/1/"), 404u);
    EXPECT_EQ(codeOf("/"), 404u);
    ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(codeOf("/pipe"), 404u);
    folder.write("1/f", "text");
    EXPECT_EQ(codeOf("/1/f/g"), 404u);
    EXPECT_EQ(codeOf("/1/f/"), 404u);
    ASSERT_EQ(::symlink("f", folder.path("1/link").c_str()), 0);
    EXPECT_EQ(codeOf("/1/link"), 200u);
}

TEST_F(LegacyDeliveryTest, ANameTooLongIsNotThere) {
    EXPECT_EQ(codeOf("/" + std::string(300, 'x')), 404u);
    EXPECT_EQ(codeOf("/" + std::string(300, 'x') + "/f"), 404u);
    std::string deep;
    for (int i = 0; i < 2000; ++i)
        deep += "/ab";
    EXPECT_EQ(codeOf(deep), 404u);
}

TEST_F(LegacyDeliveryTest, ABackslashIsAnOrdinaryCharacter) {
    folder.write("1/index.x3d", "result");
    folder.write("1/a\\b", "odd");
    EXPECT_EQ(codeOf("/1\\index.x3d"), 404u);
    EXPECT_EQ(ask("GET", "/1/a\\b").body(), "odd");
}

TEST_F(LegacyDeliveryTest, HidesNothingBelowTheRoot) {
    folder.write("1/.meta", "{}");
    EXPECT_EQ(ask("GET", "/1/.meta").body(), "{}");
    EXPECT_EQ(headerOf(ask("GET", "/1/.meta"), "Content-Type"), "application/octet-stream");
}

TEST_F(LegacyDeliveryTest, CutsThePrefixOff) {
    folder.write("f.txt", "text");
    page = makeDeliveryPage("/results", folder.path());
    EXPECT_EQ(codeOf("/results/f.txt"), 200u);
    folder.write("results", "text");
    for (const char* uri :
         {"/f.txt", "/result", "/Results/f.txt", "", "x/results/f.txt", "/abcdefg/results"})
        EXPECT_EQ(codeOf(uri), 404u) << uri;
    const std::unique_ptr<Portico::WebPage> copy(page->clone());
    Reply reply;
    EXPECT_TRUE(copy->create(makeRequest("GET", "/results/f.txt"), reply));
    EXPECT_EQ(reply.body(), "text");
}

TEST_F(LegacyDeliveryTest, LeavesOtherMethodsToTheServer) {
    folder.write("f", "text");
    for (const char* method : {"PUT", "DELETE", "OPTIONS", "PATCH", "get", "Post", ""}) {
        Request request = makeRequest(method, "/f");
        request.header().setParam("Content-Type", "text/plain");
        Reply reply;
        EXPECT_TRUE(page->create(request, reply));
        EXPECT_EQ(reply.code, 200u) << method;
        EXPECT_EQ(reply.body(), "") << method;
        EXPECT_TRUE(reply.header().entries().empty()) << method;
    }
}

/// Lets no file of this process grow beyond a size, as a full disk does.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before);
        rlimit reduced = before;
        reduced.rlim_cur = bytes;
        handler = std::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &reduced);
    }
    ~FileSizeLimit() { end(); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    void end() {
        ::setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, handler);
    }

private:
    rlimit before = {};
    void (*handler)(int) = SIG_DFL;
};

class LegacyUploadTest : public LegacyDeliveryTest {
protected:
    LegacyUploadTest() { EXPECT_TRUE(init()); }

    Reply upload(const char* type, const std::string& body = "model", const char* uri = "/") {
        Request request = makeRequest("POST", uri, body);
        request.header().setParam("Origin", "http://me");
        if (type)
            request.header().setParam("Content-Type", type);
        const Reply reply = fetch(request);
        EXPECT_TRUE(hasCors(reply, "http://me"));
        EXPECT_EQ(headerOf(reply, "Content-Type"), "(none)");
        return reply;
    }

    /// The name in an answer of the form NAME@SERVICE.
    static std::string nameOf(const Reply& reply) {
        return reply.body().substr(0, reply.body().find('@'));
    }
};

TEST_F(LegacyUploadTest, StoresTheBodyUnderANewName) {
    registerWithHub();
    const std::string body("a\0b\r\n\xff", 6);
    const Reply reply = upload("model/x3d+xml", body);
    EXPECT_EQ(reply.code, 200u);
    static const std::regex form("[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}\\.x3d@(.*)");
    std::smatch found;
    const std::string text = reply.body();
    ASSERT_TRUE(std::regex_match(text, found, form)) << text;
    EXPECT_EQ(found[1], state().serviceId());
    EXPECT_EQ(found[1].length(), 36);
    EXPECT_EQ(folder.read("cache/in/" + nameOf(reply)), body);
}

TEST_F(LegacyUploadTest, NamesNoServiceBeforeItIsRegistered) {
    const std::string text = upload("text/plain").body();
    EXPECT_EQ(text.size(), 24u) << text;
    EXPECT_EQ(text.back(), '@');
}

TEST_F(LegacyUploadTest, TakesFourTypesAsTheyAreWritten) {
    const std::pair<const char*, const char*> types[] = {{"text/plain", ".txt"},
                                                         {"image/png", ".png"},
                                                         {"model/x3d+xml", ".x3d"},
                                                         {"model/x3d+vrml", ".x3dv"}};
    for (const auto& type : types) {
        const std::string name = nameOf(upload(type.first));
        EXPECT_EQ(name.substr(name.find('.')), type.second);
        EXPECT_EQ(extensionForMime(type.first), std::string(type.second).substr(1));
    }
    for (const char* type : {"", " ", "text", "TEXT/PLAIN", "text/html", "text/plain;charset=utf-8",
                             "text/plain; charset=utf-8", "text/plain, text/plain", "image/png "}) {
        const Reply reply = upload(type);
        EXPECT_EQ(reply.code, 404u) << type;
        EXPECT_EQ(reply.body(), "") << type;
        EXPECT_EQ(extensionForMime(type), "");
    }
    EXPECT_EQ(upload(nullptr).code, 404u);
}

TEST_F(LegacyUploadTest, AsksForNoPath) {
    for (const char* uri : {"/", "/1/index.x3d", "/../x", "/any/where"}) {
        const Reply reply = upload("text/plain", "t", uri);
        EXPECT_EQ(reply.code, 200u) << uri;
        EXPECT_EQ(folder.read("cache/in/" + nameOf(reply)), "t") << uri;
    }
}

TEST_F(LegacyUploadTest, NamesDiffer) {
    std::set<std::string> names;
    for (int i = 0; i < 200; ++i)
        names.insert(nameOf(upload("text/plain", "")));
    EXPECT_EQ(names.size(), 200u);
    EXPECT_EQ(folder.read("cache/in/" + *names.begin()), "");
}

TEST_F(LegacyUploadTest, OneThatCanNotBeStoredIsAnsweredAllTheSame) {
    boost::filesystem::remove(folder.path("cache/in"));
    const Reply reply = upload("text/plain");
    EXPECT_EQ(reply.code, 200u);
    EXPECT_EQ(nameOf(reply).size(), 23u) << reply.body();
    EXPECT_FALSE(folder.has("cache/in"));
    EXPECT_TRUE(logged("UPLOAD: failed, could not be written: " + nameOf(reply)));
}

TEST_F(LegacyUploadTest, OneThatIsCutShortLeavesNoFile) {
    FileSizeLimit limit(4096);
    EXPECT_EQ(upload("text/plain", std::string(4096, 'x')).code, 200u);
    const Reply reply = upload("text/plain", std::string(100000, 'x'));
    EXPECT_EQ(reply.code, 200u);
    limit.end();
    EXPECT_FALSE(folder.has("cache/in/" + nameOf(reply)));
    EXPECT_TRUE(logged("UPLOAD: failed, could not be written: " + nameOf(reply)));
    const boost::filesystem::directory_iterator uploads(folder.path("cache/in")), none;
    EXPECT_EQ(std::distance(uploads, none), 1);
}

} // namespace
} // namespace OstrandService

// Paths on both result servers: no file outside the cache folder is handed out, and none of a job
// that is not finished.

#include "platform/portico/ProtocolHTTP.h"
#include "platform/portico/RequestTarget.h"
#include "platform/portico/WebPage.h"
#include "providers/legacy/DeliveryWebPage.h"
#include "providers/transcoder/DeliveryWebPage.h"
#include "tests/fuzz/Input.h"
#include "tests/support/TemporaryFolder.h"

#include <memory>
#include <string>

namespace OstrandService {

/// Reaches what the provider keeps for itself and its tests.
class TranscoderServiceProviderTest {
public:
    static std::unique_ptr<Portico::WebPage> page(const std::string& root) {
        return std::make_unique<TranscoderServiceProvider::DeliveryWebPage>("", root);
    }
};

/// The same of the legacy provider.
class TranscoderLegacyServiceProviderTest {
public:
    static std::unique_ptr<Portico::WebPage> page(const std::string& root) {
        return std::make_unique<TranscoderLegacyServiceProvider::DeliveryWebPage>("", root);
    }
};

} // namespace OstrandService

namespace {

/// A cache folder beside what must not be read, and the two pages over it.
struct Stand {
    Stand() {
        folder.write("secret", "outside");
        folder.write("cache2/1/index.html", "outside");
        folder.write("cache/1/index.html", "result");
        folder.write("cache/1/binGeo/a.bin", "result");
        folder.write("cache/2/index.html", "half");
        folder.write("cache/2/.partial", "");
    }

    Support::TemporaryFolder folder;
    const std::string root = folder.path("cache");
    const std::unique_ptr<Portico::WebPage> pages[2] = {
        OstrandService::TranscoderServiceProviderTest::page(root),
        OstrandService::TranscoderLegacyServiceProviderTest::page(root)};
};

void ask(Portico::WebPage& page, const Portico::ProtocolHTTP::Request& request) {
    Portico::ProtocolHTTP::Reply reply;
    Fuzz::require(page.create(request, reply));
    Fuzz::require(reply.code == 200 || reply.code == 202 || reply.code == 403 || reply.code == 404);
    const bool delivered = reply.code == 200 && request.method == "GET";
    Fuzz::require(reply.body() == (delivered ? "result" : ""));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Stand stand;
    Portico::ProtocolHTTP::Request request;
    if (!Portico::RequestTarget::parse(Fuzz::textOf(data, size), request.uri, request.query))
        return 0;
    for (const char* method : {"GET", "HEAD"}) {
        request.method = method;
        for (const auto& page : stand.pages)
            ask(*page, request);
    }
    return 0;
}

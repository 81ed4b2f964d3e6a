#include "framework/WebPageObject.h"

#include <gtest/gtest.h>
#include <memory>

namespace Portico {
namespace {

class Target {
public:
    virtual ~Target() = default;
    virtual bool simple(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) {
        reply.body() = "base " + request.uri;
        return request.uri == "/yes";
    }
    WebPage::RequestResult withClient(WebClient* client, const ProtocolHTTP::Request& /*request*/,
                                      ProtocolHTTP::Reply& reply) {
        reply.body() = client ? "a client" : "no client";
        return 42;
    }
};

class Subclass : public Target {
public:
    bool simple(const ProtocolHTTP::Request& /*request*/, ProtocolHTTP::Reply& reply) override {
        reply.body() = "subclass";
        return true;
    }
};

ProtocolHTTP::Request requestFor(const std::string& uri) {
    ProtocolHTTP::Request request;
    request.uri = uri;
    return request;
}

TEST(WebPageObjectTest, ForwardsToTheSimpleHandler) {
    Target target;
    WebPageObject<Target> page(&target, &Target::simple);
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(page.create(nullptr, requestFor("/yes"), reply), 1);
    EXPECT_EQ(reply.body(), "base /yes");
    EXPECT_EQ(page.create(nullptr, requestFor("/no"), reply), 0);
    EXPECT_EQ(reply.body(), "base /no");
    EXPECT_EQ(reply.code, 200u);
}

TEST(WebPageObjectTest, ForwardsToTheHandlerWithAClientAndReturnsItsResult) {
    Target target;
    WebPageObject<Target> page(&target, &Target::withClient);
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(page.create(nullptr, requestFor("/"), reply), 42);
    EXPECT_EQ(reply.body(), "no client");
}

TEST(WebPageObjectTest, ReachesAnOverride) {
    Subclass target;
    WebPageObject<Target> page(&target, &Target::simple);
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(page.create(nullptr, requestFor("/"), reply), 1);
    EXPECT_EQ(reply.body(), "subclass");
}

TEST(WebPageObjectTest, ShortFormIsTheInheritedOneAndDoesNothing) {
    Target target;
    WebPageObject<Target> page(&target, &Target::simple);
    ProtocolHTTP::Reply reply;
    EXPECT_FALSE(page.create(requestFor("/yes"), reply));
    EXPECT_EQ(reply.body(), "");
}

TEST(WebPageObjectTest, CloneOutlivesTheOriginal) {
    Target target;
    auto page = std::make_unique<WebPageObject<Target>>(&target, &Target::simple);
    auto client = std::make_unique<WebPageObject<Target>>(&target, &Target::withClient);
    const std::unique_ptr<WebPage> clone(page->clone());
    const std::unique_ptr<WebPage> clientClone(client->clone());
    page.reset();
    client.reset();
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(clone->create(nullptr, requestFor("/yes"), reply), 1);
    EXPECT_EQ(reply.body(), "base /yes");
    EXPECT_EQ(clientClone->create(nullptr, requestFor("/yes"), reply), 42);
}

} // namespace
} // namespace Portico

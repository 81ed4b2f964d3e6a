#pragma once

#include "tests/support/Requests.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

namespace Support {

/// Asks a page of a result server, as a client whose page comes from "http://me".
class DeliveryProbe {
public:
    using Reply = Portico::ProtocolHTTP::Reply;

    explicit DeliveryProbe(std::unique_ptr<Portico::WebPage> asked) : page(std::move(asked)) {}

    Reply ask(const std::string& method, const std::string& uri) const {
        auto request = makeRequest(method, uri);
        request.header().setParam("Origin", "http://me");
        Reply reply;
        EXPECT_TRUE(page->create(request, reply));
        return reply;
    }

    /// Asks with GET and with HEAD, which must agree, and gives the code.
    std::uint32_t codeOf(const std::string& uri) const {
        const Reply get = ask("GET", uri);
        const Reply head = ask("HEAD", uri);
        EXPECT_EQ(get.code, head.code) << uri;
        EXPECT_EQ(head.body(), "") << uri;
        EXPECT_TRUE(hasCors(get, "http://me")) << uri;
        EXPECT_TRUE(hasCors(head, "http://me")) << uri;
        EXPECT_EQ(headerOf(get, "Content-Type"), headerOf(head, "Content-Type")) << uri;
        if (get.code != 200) {
            EXPECT_EQ(get.body(), "") << uri;
            EXPECT_EQ(headerOf(get, "Content-Type"), "(none)") << uri;
        }
        return get.code;
    }

    std::unique_ptr<Portico::WebPage> page;
};

} // namespace Support

#include "framework/Cors.h"

#include "platform/portico/ProtocolHTTP.h"

#include <gtest/gtest.h>

namespace OstrandService {
namespace {

using Portico::ProtocolHTTP::Reply;
using Portico::ProtocolHTTP::Request;

TEST(CorsTest, LetsEveryOriginReadByDefault) {
    Reply reply;
    addCorsHeaders(Request(), reply);
    EXPECT_STREQ(reply.header().getParam("Access-Control-Allow-Origin", ""), "*");
    EXPECT_STREQ(reply.header().getParam("Access-Control-Allow-Headers", ""), "content-type");
    EXPECT_EQ(reply.header().entries().size(), 2u);
}

TEST(CorsTest, EchoesTheOriginUntested) {
    Request request;
    request.header().setParam("origin", "any text at all");
    Reply reply;
    addCorsHeaders(request, reply);
    addCorsHeaders(request, reply);
    EXPECT_STREQ(reply.header().getParam("Access-Control-Allow-Origin", ""), "any text at all");
    EXPECT_EQ(reply.header().entries().size(), 2u);
}

} // namespace
} // namespace OstrandService

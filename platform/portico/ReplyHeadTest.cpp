#include "platform/portico/ReplyHead.h"

#include <gtest/gtest.h>
#include <regex>
#include <string>

namespace Portico {
namespace {

/// A composed head without its date.
std::string compose(const ProtocolHTTP::Reply& reply, bool toHead = false, bool close = false,
                    bool sayKeepAlive = false) {
    const std::string realm = "R";
    const std::string head = ReplyHead{realm, toHead, close, sayKeepAlive}.compose(reply);
    static const std::regex date("Date: (Mon|Tue|Wed|Thu|Fri|Sat|Sun), [0-9]{2} "
                                 "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [0-9]{4} "
                                 "[0-9]{2}:[0-9]{2}:[0-9]{2} GMT\r\n");
    EXPECT_TRUE(std::regex_search(head, date)) << head;
    return std::regex_replace(head, date, "");
}

TEST(ReplyHead, composesStatusLineAndHeader) {
    ProtocolHTTP::Reply reply;
    reply.header().setParam("Content-Type", "text/plain");
    reply.body() = "hello";
    EXPECT_EQ(compose(reply), "HTTP/1.1 200 OK\r\nServer: R\r\nContent-Type: text/plain\r\n"
                              "Content-Length: 5\r\n\r\n");
}

TEST(ReplyHead, saysHowLongAnEmptyBodyIs) {
    ProtocolHTTP::Reply reply;
    reply.setCode(404);
    EXPECT_EQ(compose(reply), "HTTP/1.1 404 Not Found\r\nServer: R\r\nContent-Length: 0\r\n\r\n");
}

TEST(ReplyHead, leavesTheLengthOutForHeadWithoutABody) {
    ProtocolHTTP::Reply reply;
    EXPECT_EQ(compose(reply, true), "HTTP/1.1 200 OK\r\nServer: R\r\n\r\n");
    reply.body() = "123";
    EXPECT_EQ(compose(reply, true), "HTTP/1.1 200 OK\r\nServer: R\r\nContent-Length: 3\r\n\r\n");
}

TEST(ReplyHead, tellsHowTheConnectionGoesOn) {
    const ProtocolHTTP::Reply reply;
    EXPECT_NE(compose(reply, false, true).find("\r\nConnection: close\r\n"), std::string::npos);
    EXPECT_NE(compose(reply, false, false, true).find("\r\nConnection: keep-alive\r\n"),
              std::string::npos);
    EXPECT_EQ(compose(reply).find("Connection"), std::string::npos);
}

TEST(ReplyHead, keepsPagesFromForgingLinesAndFraming) {
    ProtocolHTTP::Reply reply;
    reply.header().setParam("Location", "http://h/\r\nSet-Cookie: a=b\r\n\r\n<html>");
    reply.header().appendParam("X\r\nY", std::string("1\0002", 3));
    reply.header().setParam("content-length", "7");
    reply.header().setParam("Transfer-Encoding", "chunked");
    reply.header().setParam("Connection", "close");
    reply.body() = "abc";
    EXPECT_EQ(compose(reply), "HTTP/1.1 200 OK\r\nServer: R\r\n"
                              "Location: http://h/Set-Cookie: a=b<html>\r\nXY: 12\r\n"
                              "Content-Length: 3\r\n\r\n");
}

/// A composed head of a server that adds two fields to HTML replies.
std::string composeWithHtmlHeader(const ProtocolHTTP::Reply& reply, bool toHead = false) {
    MessageHeader added;
    added.appendParam("X-One", "1");
    added.appendParam("X-Two", "2");
    const std::string realm = "R";
    return ReplyHead{realm, toHead, false, false, &added}.compose(reply);
}

TEST(ReplyHead, addsFieldsToHtmlOfAnySpelling) {
    for (const char* type : {"text/html", "TEXT/Html", "text/html; charset=utf-8",
                             "text/html;charset=utf-8", "text/html ", "text/html\t;x=y"}) {
        for (const unsigned long code : {200ul, 202ul, 302ul, 404ul, 500ul, 204ul}) {
            ProtocolHTTP::Reply reply;
            reply.setCode(code);
            reply.header().setParam("content-type", type);
            const std::string fields =
                std::string("\r\ncontent-type: ") + type + "\r\nX-One: 1\r\nX-Two: 2\r\n";
            EXPECT_NE(composeWithHtmlHeader(reply).find(fields), std::string::npos) << type;
            EXPECT_NE(composeWithHtmlHeader(reply, true).find(fields), std::string::npos) << type;
        }
    }
}

TEST(ReplyHead, addsNothingToOtherReplies) {
    for (const char* type : {"text/plain", "application/json", "text/htmlx", "text/htm", "",
                             "text/html+x", "text/plain; text/html", "application/xhtml+xml"}) {
        ProtocolHTTP::Reply reply;
        reply.header().setParam("Content-Type", type);
        EXPECT_EQ(composeWithHtmlHeader(reply).find("X-"), std::string::npos) << type;
    }
    EXPECT_EQ(composeWithHtmlHeader(ProtocolHTTP::Reply()).find("X-"), std::string::npos);
}

TEST(ReplyHead, leavesFieldsThatThePageSets) {
    ProtocolHTTP::Reply reply;
    reply.header().setParam("x-two", "its own");
    reply.header().setParam("Content-Type", "text/html");
    const std::string head = composeWithHtmlHeader(reply);
    EXPECT_NE(head.find("\r\nx-two: its own\r\nContent-Type: text/html\r\nX-One: 1\r\n"),
              std::string::npos)
        << head;
    EXPECT_EQ(head.find("X-Two"), std::string::npos) << head;
}

TEST(ReplyHead, turnsWhatIsNoFinalStatusInto500) {
    for (const unsigned long code : {0ul, 1ul, 100ul, 101ul, 199ul, 1000ul, 4294967295ul}) {
        ProtocolHTTP::Reply reply;
        reply.setCode(code);
        EXPECT_EQ(compose(reply).substr(0, 13), "HTTP/1.1 500 ") << code;
    }
    ProtocolHTTP::Reply reply;
    reply.setCode(299);
    EXPECT_EQ(compose(reply).substr(0, 15), "HTTP/1.1 299 \r\n");
}

TEST(ReplyHead, knowsRepliesWithoutABody) {
    ProtocolHTTP::Reply reply;
    reply.body() = "x";
    for (const unsigned long code : {204ul, 304ul}) {
        reply.setCode(code);
        EXPECT_EQ(compose(reply).find("Content-Length"), std::string::npos) << code;
    }
}

} // namespace
} // namespace Portico

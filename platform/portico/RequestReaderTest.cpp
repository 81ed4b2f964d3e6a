#include "platform/portico/RequestReader.h"

#include "platform/portico/FrontLimits.h"
#include "platform/portico/InputBuffer.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace Portico {
namespace {

using Step = RequestReader::Step;

void add(InputBuffer& input, const std::string& text) {
    std::size_t at = 0;
    while (at < text.size()) {
        input.prepare(1024);
        const std::size_t part = std::min(input.room(), text.size() - at);
        std::memcpy(input.tail(), text.data() + at, part);
        input.commit(part);
        at += part;
    }
}

/// What the reader makes of a text that comes in pieces of `piece` bytes.
struct Reading {
    explicit Reading(const std::string& text, std::size_t piece = 1000000,
                     std::uint64_t bodyLimit = 1000)
        : reader(bodyLimit) {
        for (std::size_t at = 0; at < text.size(); at += piece) {
            if (step == Step::Complete || step == Step::Refused) {
                add(input, text.substr(at));
                return;
            }
            add(input, text.substr(at, piece));
            step = reader.advance(input);
            if (step == Step::SendContinue) {
                ++continues;
                step = reader.advance(input);
            }
        }
    }

    std::string rest() const { return std::string(input.view()); }
    unsigned code() const { return step == Step::Refused ? reader.refusal().code : 0; }

    RequestReader reader;
    InputBuffer input;
    Step step = Step::NeedMore;
    int continues = 0;
};

const std::string chunkedHead = "POST /x HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";

TEST(RequestReader, readsARequestInPiecesOfAnySize) {
    const std::string text = "\r\n\r\nPoST /a%20b?c=d HTTP/1.1\r\nHost: h\r\nX-A:  1 \r\nx-a: 2\r\n"
                             "Content-Length: 5\r\n\r\nhelloGET /next";
    for (const std::size_t piece : {1u, 2u, 3u, 7u, 1000u}) {
        Reading reading(text, piece);
        ASSERT_EQ(reading.step, Step::Complete) << piece;
        const ProtocolHTTP::Request& request = reading.reader.request();
        EXPECT_EQ(request.method, "PoST");
        EXPECT_EQ(request.uri, "/a b");
        EXPECT_STREQ(request.query.getParam("c", ""), "d");
        EXPECT_STREQ(request.header().getParam("X-a", ""), "1, 2");
        EXPECT_EQ(request.body(), "hello");
        EXPECT_EQ(reading.rest(), "GET /next");
        EXPECT_TRUE(reading.reader.head().keepAlive);
    }
}

TEST(RequestReader, readsChunksInPiecesOfAnySize) {
    const std::string text = chunkedHead +
                             "5\r\nhello\r\n1;a=\"b\";c\r\n \r\n0000A\r\n0123456789\r\n"
                             "0\r\nX-Trailer: t\r\nHost: other\r\n\r\nrest";
    for (const std::size_t piece : {1u, 2u, 5u, 1000u}) {
        Reading reading(text, piece);
        ASSERT_EQ(reading.step, Step::Complete) << piece;
        EXPECT_EQ(reading.reader.request().body(), "hello 0123456789");
        EXPECT_FALSE(reading.reader.request().header().hasParam("X-Trailer"));
        EXPECT_STREQ(reading.reader.request().header().getParam("Host", ""), "h");
        EXPECT_EQ(reading.rest(), "rest");
    }
}

TEST(RequestReader, refusesMalformedChunks) {
    for (const char* body : {"x\r\n",
                             "\r\n",
                             ";a\r\n",
                             "-1\r\n",
                             "+1\r\n",
                             "0x1\r\n",
                             " 1\r\n",
                             "1 \r\n",
                             "1\n",
                             "1\r1",
                             "1\r\nab",
                             "1\r\na\n",
                             "1\r\na\r0",
                             "FFFFFFFFFFFFFFFFF\r\n",
                             "10000000000000000\r\n",
                             "1;\x01\r\n",
                             "1;a\n",
                             "0\r\n\n",
                             "0\r\nX: \x02\r\n",
                             "0\r\n\rx"})
        EXPECT_EQ(Reading(chunkedHead + body).code(), 400u) << body;
}

TEST(RequestReader, boundsChunkLinesAndTrailers) {
    const std::string much(FrontLimits::chunkLine, 'a');
    EXPECT_EQ(Reading(chunkedHead + "1;" + much).code(), 400u);
    EXPECT_EQ(Reading(chunkedHead + std::string(FrontLimits::chunkLine + 1, '0')).code(), 400u);
    EXPECT_EQ(Reading(chunkedHead + "0\r\nX: " + much + "\r\n\r\n").code(), 400u);
    EXPECT_EQ(Reading(chunkedHead + "0\r\n" + "X: a\r\n\r\n").step, Step::Complete);
}

TEST(RequestReader, limitsTheSumOfTheChunks) {
    const std::string half = "1f4\r\n" + std::string(500, 'x') + "\r\n";
    EXPECT_EQ(Reading(chunkedHead + half + half + "0\r\n\r\n").step, Step::Complete);
    EXPECT_EQ(Reading(chunkedHead + half + half + "1\r\n").code(), 413u);
    EXPECT_EQ(Reading(chunkedHead + "ffffffffffffffff\r\n").code(), 413u);
}

TEST(RequestReader, readsLengthsAsDigitsOnly) {
    const auto code = [](const std::string& length) {
        return Reading("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: " + length + "\r\n\r\n")
            .code();
    };
    for (const char* length : {"-1", "+1", "1 2", "0x1", "a", "", "1,1", "1, 1", "1.0", "1;",
                               "18446744073709551616", "99999999999999999999999"})
        EXPECT_EQ(code(length), 400u) << length;
    EXPECT_EQ(code("18446744073709551615"), 413u);
    EXPECT_EQ(code("1001"), 413u);
    EXPECT_EQ(code("1000"), 0u);
    EXPECT_EQ(code("0"), 0u);
    EXPECT_EQ(code("000"), 0u);
    EXPECT_EQ(code("1\r\nContent-Length: 1"), 400u);
    EXPECT_EQ(code("1\r\ncontent-length: 2"), 400u);
}

TEST(RequestReader, refusesContradictoryAndUnknownFraming) {
    const auto code = [](const std::string& fields, const char* version = "1.1") {
        return Reading(std::string("POST / HTTP/") + version + "\r\nHost: h\r\n" + fields +
                       "\r\n\r\n")
            .code();
    };
    EXPECT_EQ(code("Content-Length: 1\r\nTransfer-Encoding: chunked"), 400u);
    EXPECT_EQ(code("Transfer-Encoding: chunked\r\nContent-Length: 1"), 400u);
    EXPECT_EQ(code("Transfer-Encoding: gzip\r\nContent-Length: 1"), 400u);
    EXPECT_EQ(code("Transfer-Encoding: gzip"), 501u);
    EXPECT_EQ(code("Transfer-Encoding: identity"), 501u);
    EXPECT_EQ(code("Transfer-Encoding: gzip, chunked"), 501u);
    EXPECT_EQ(code("Transfer-Encoding: chunked, gzip"), 501u);
    EXPECT_EQ(code("Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked"), 501u);
    EXPECT_EQ(code("Transfer-Encoding: xchunked"), 501u);
    EXPECT_NE(code("Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked"), 0u);
    EXPECT_NE(code("Transfer-Encoding:"), 0u);
    EXPECT_EQ(code("Transfer-Encoding: ChUnKeD"), 0u);
    EXPECT_EQ(code("Transfer-Encoding: chunked", "1.0"), 400u);
}

TEST(RequestReader, refusesMalformedHeads) {
    for (const char* head : {"GET / HTTP/1.1\r\nHost: h\r\n folded\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\r\n\tx\r\n\r\n",
                             " GET / HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET / HTTP/1.1\r\n Host: h\r\n\r\n",
                             "GET / HTTP/1.1\nHost: h\n\n",
                             "GET / HTTP/1.1\r\nHost: h\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\rX: y\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost : h\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\r\nX\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\r\n: x\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\r\nX y: z\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\r\nX: \x01\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: h\r\nX: \x7f\r\n\r\n",
                             "GET / HTTP/1.1\r\n\r\n",
                             "GET / HTTP/1.1\r\nHost: a\r\nHost: a\r\n\r\n",
                             "GET  / HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET / a HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET /\r\n\r\n",
                             "GET\r\n\r\n",
                             "G(T / HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET http://h/ HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET * HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET /%zz HTTP/1.1\r\nHost: h\r\n\r\n",
                             "GET / HTTX/1.1\r\nHost: h\r\n\r\n",
                             "GET / HTTP/1.1 \r\nHost: h\r\n\r\n",
                             "\x16\x03\x01\x02",
                             "\n",
                             "\r\r"})
        EXPECT_EQ(Reading(head).code(), 400u) << head;
    EXPECT_EQ(Reading(std::string("GET / HTTP/1.1\r\nX: a\0b", 22)).code(), 400u);
}

TEST(RequestReader, refusesUnknownVersions) {
    for (const char* version : {"2.0", "1.2", "0.9", "3.0"})
        EXPECT_EQ(Reading(std::string("GET / HTTP/") + version + "\r\nHost: h\r\n\r\n").code(),
                  505u)
            << version;
}

TEST(RequestReader, letsWhatIsOnlyUnusualThrough) {
    Reading reading("x-Y!#$ /\xc3\xa4|[ HTTP/1.1\r\nHost:\r\nX:\ta\tb \t\r\nY: \xe4\r\n\r\n");
    ASSERT_EQ(reading.step, Step::Complete);
    EXPECT_EQ(reading.reader.request().method, "x-Y!#$");
    EXPECT_EQ(reading.reader.request().uri, "/\xc3\xa4|[");
    EXPECT_STREQ(reading.reader.request().header().getParam("x", ""), "a\tb");
    EXPECT_STREQ(reading.reader.request().header().getParam("host", "-"), "");
}

TEST(RequestReader, limitsTheHead) {
    const std::string start = "GET / HTTP/1.1\r\nHost: h\r\nX: ";
    const std::string fits(FrontLimits::headSize - start.size() - 4, 'x');
    for (const std::size_t piece : {1000u, 1000000u}) {
        EXPECT_EQ(Reading(start + fits + "\r\n\r\n", piece).step, Step::Complete);
        EXPECT_EQ(Reading(start + fits + "y\r\n\r\n", piece).code(), 431u);
    }
    EXPECT_EQ(Reading("GET /" + std::string(FrontLimits::headSize, 'x')).code(), 431u);
}

TEST(RequestReader, boundsEmptyLines) {
    std::string lines;
    while (lines.size() <= FrontLimits::emptyLines)
        lines += "\r\n";
    EXPECT_EQ(Reading(lines).code(), 400u);
    Reading few("\r\n\r\n\r");
    EXPECT_EQ(few.step, Step::NeedMore);
    EXPECT_FALSE(few.reader.hasBegun());
}

TEST(RequestReader, asksOnceForABodyThatWaits) {
    const std::string head = "POST / HTTP/1.1\r\nHost: h\r\nExpect: 100-Continue\r\n";
    EXPECT_EQ(Reading(head + "Content-Length: 2\r\n\r\n").continues, 1);
    EXPECT_EQ(Reading(head + "Transfer-Encoding: chunked\r\n\r\n").continues, 1);
    EXPECT_EQ(Reading(head + "Content-Length: 2\r\n\r\na").continues, 0);
    EXPECT_EQ(Reading(head + "Content-Length: 0\r\n\r\n").continues, 0);
    EXPECT_EQ(Reading(head + "\r\n").continues, 0);
    Reading refused(head + "Content-Length: 1001\r\n\r\n");
    EXPECT_EQ(refused.continues, 0);
    EXPECT_EQ(refused.code(), 413u);
    EXPECT_EQ(
        Reading("POST / HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n").continues,
        0);
}

TEST(RequestReader, knowsWhoGoesOn) {
    const auto goesOn = [](const std::string& version, const std::string& field) {
        return Reading("GET / HTTP/" + version + "\r\nHost: h\r\n" + field + "\r\n")
            .reader.head()
            .keepAlive;
    };
    EXPECT_TRUE(goesOn("1.1", ""));
    EXPECT_FALSE(goesOn("1.1", "Connection: close\r\n"));
    EXPECT_FALSE(goesOn("1.1", "Connection: x, CLOSE\r\n"));
    EXPECT_FALSE(goesOn("1.0", ""));
    EXPECT_TRUE(goesOn("1.0", "Connection: Keep-Alive\r\n"));
}

TEST(RequestReader, holdsNoMoreThanHasArrived) {
    Reading reading("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 60000000\r\n\r\nabc", 1000,
                    64000000);
    EXPECT_EQ(reading.step, Step::NeedMore);
    EXPECT_EQ(reading.reader.request().body(), "abc");
    EXPECT_LT(reading.reader.request().body().capacity(), 1000u);
}

TEST(InputBuffer, givesItsMemoryBack) {
    InputBuffer input;
    add(input, std::string(100000, 'x'));
    EXPECT_EQ(input.view().size(), 100000u);
    input.shrink(1024);
    EXPECT_EQ(input.view().size(), 100000u);
    input.consume(99999);
    EXPECT_EQ(input.view(), "x");
    input.consume(1);
    input.shrink(1024);
    input.prepare(10);
    EXPECT_LE(input.room(), 1024u);
}

} // namespace
} // namespace Portico

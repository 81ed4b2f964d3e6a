#include "platform/portico/Connection.h"

#include "platform/hub/MessageLog.h"
#include "platform/portico/FrontLimits.h"
#include "platform/portico/IoCore.h"
#include "platform/portico/ReplyHead.h"
#include "platform/portico/ServerState.h"
#include "platform/portico/WebPage.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <exception>
#include <limits>
#include <sstream>
#include <sys/socket.h>
#include <time.h>

namespace Portico {

namespace {

/// Attempts to send at once before others of the core get their turn.
constexpr int sendRounds = 4;

constexpr std::int64_t noLimit = std::numeric_limits<std::int64_t>::max();

const char continueText[] = "HTTP/1.1 100 Continue\r\n\r\n";

} // namespace

/// A request and its reply, from the first byte of the one to the last of the other.
struct Connection::Exchange {
    explicit Exchange(std::uint64_t bodyLimit) : reader(bodyLimit) {}

    RequestReader reader;
    ProtocolHTTP::Reply reply;
    std::string head;        ///< of the reply, as it is sent
    Pieces pieces;           ///< what is left to send
    bool interim = false;    ///< the pieces are a 100, the request goes on
    bool closeAfter = false; ///< the reply is the connection's last
    bool refused = false;    ///< what follows the request is not understood
};

Connection::Connection(IoCore& ownCore, ConnectionList& ownList, ServerState& ownServer)
    : core(ownCore), list(ownList), server(ownServer),
      deadline(clockMillis() + ownServer.idleMillis) {
    position = list.add(*this);
    listed = true;
}

Connection::~Connection() = default;

std::int64_t Connection::clockMillis() {
    // Some milliseconds late, which no limit minds, and a quarter of the price: each request asks
    // for the time three times.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void Connection::enter(Phase next, std::int64_t limitMillis) {
    deadline.store(limitMillis == noLimit ? noLimit : clockMillis() + limitMillis,
                   std::memory_order_relaxed);
    // Against the stop of the server: whoever looks first, one of both sees the other's mark.
    phase.store(next);
}

void Connection::start() {
    enter(Phase::Handshake, server.clientMillis);
    if (server.stopping.load())
        finish();
    else
        startHandshake();
}

void Connection::onReady(const Error& failure) {
    if (failure)
        finish();
    else
        rest();
}

/// Waits for a request with next to no memory.
void Connection::rest() {
    exchange.reset();
    input.shrink(FrontLimits::restingBuffer);
    enter(Phase::Resting, server.idleMillis);
    readMore();
}

void Connection::readMore() {
    if (server.stopping.load()) {
        finish();
        return;
    }
    const bool body = exchange && exchange->reader.inBody();
    input.prepare(body ? FrontLimits::bodyRead : FrontLimits::restingBuffer);
    startRead(input.tail(), input.room());
}

void Connection::onRead(const Error& failure, std::size_t count) {
    const Phase now = phase.load();
    if (failure) {
        // The list has only shut the reading side down, so that the client can be told.
        if (expired.load() && (now == Phase::Head || now == Phase::Body))
            refuse({408, "request stood still"});
        else
            finish();
    } else if (now == Phase::Draining) {
        startRead(input.tail(), input.room());
    } else {
        input.commit(count);
        advance();
    }
}

void Connection::advance() {
    if (!exchange)
        exchange = std::make_unique<Exchange>(server.bodyLimit);
    RequestReader& reader = exchange->reader;
    switch (reader.advance(input)) {
    case RequestReader::Step::NeedMore:
        // Empty lines are no request and gain no time.
        if (reader.hasBegun())
            enter(reader.inBody() ? Phase::Body : Phase::Head, server.clientMillis);
        readMore();
        break;
    case RequestReader::Step::SendContinue:
        sendContinue();
        break;
    case RequestReader::Step::Complete:
        takePlace();
        break;
    case RequestReader::Step::Refused:
        refuse(reader.refusal());
        break;
    }
}

void Connection::sendContinue() {
    exchange->interim = true;
    exchange->pieces = {boost::asio::buffer(continueText, sizeof continueText - 1),
                        boost::asio::const_buffer()};
    enter(Phase::Sending, server.clientMillis);
    send();
}

void Connection::takePlace() {
    if (server.gate.tryEnter()) {
        serve();
        return;
    }
    enter(Phase::Waiting, noLimit);
    server.gate.wait([self = shared_from_this()] {
        boost::asio::post(self->core.context(), [self] { self->serve(); });
    });
}

void Connection::serve() {
    bool close = !exchange->reader.head().keepAlive;
    {
        const PageGate::Place place(server.gate);
        const bool waited = phase.load() == Phase::Waiting;
        enter(Phase::Page, noLimit);
        if (!server.stopping.load()) {
            runPage();
        } else if (waited) {
            exchange->reply.setCode(503);
            close = true;
        } else {
            // The stop may have shut the connection down already: of what a page did now, the
            // client would not learn.
            finish();
            return;
        }
    }
    answer(close);
}

void Connection::runPage() {
    const ProtocolHTTP::Request& request = exchange->reader.request();
    ProtocolHTTP::Reply& reply = exchange->reply;
    if (server.traceRequests) {
        std::ostringstream dump;
        dump << request;
        OstrandService::MessageLog::the()->log(dump.str());
    }
    WebPage* const page = server.pages.find(request.uri);
    if (!page) {
        reply.setCode(404);
        return;
    }
    try {
        const IoCore::PageVisit visit(core);
        page->create(this, request, reply);
    } catch (const std::exception& thrown) {
        pageFailed(thrown.what());
    } catch (...) {
        pageFailed("unknown exception");
    }
}

void Connection::pageFailed(const char* reason) {
    // Half of a reply is worse than none.
    exchange->reply = ProtocolHTTP::Reply();
    exchange->reply.setCode(500);
    logLine(exchange->reader.request().uri + ": page failed: " + reason);
}

/// Answers in place of a page and ends the connection.
void Connection::refuse(const Refusal& refusal) {
    logLine("refused with " + std::to_string(refusal.code) + ": " + refusal.reason);
    exchange->reply = ProtocolHTTP::Reply();
    exchange->reply.setCode(refusal.code);
    exchange->refused = true;
    answer(true);
}

void Connection::answer(bool close) {
    ProtocolHTTP::Request& request = exchange->reader.request();
    ProtocolHTTP::Reply& reply = exchange->reply;
    reply.setCode(ReplyHead::finalCode(reply.code));
    exchange->interim = false;
    exchange->closeAfter = close || server.stopping.load();
    const bool version10 = !exchange->reader.head().version11;
    const ReplyHead composer{server.realm, request.method == "HEAD", exchange->closeAfter,
                             version10 && !exchange->closeAfter, server.addedToHtml()};
    exchange->head = composer.compose(reply);
    const bool withBody = !composer.toHead && ReplyHead::hasBody(reply.code);
    exchange->pieces = {boost::asio::buffer(exchange->head),
                        withBody ? boost::asio::buffer(reply.body()) : boost::asio::const_buffer()};
    if (server.traceReplies)
        OstrandService::MessageLog::the()->log("replied " + std::to_string(reply.code) + " to " +
                                               request.method + " " + request.uri);
    std::string().swap(request.body());
    enter(Phase::Sending, server.clientMillis);
    send();
}

void Connection::send() {
    for (int round = 0; round < sendRounds; ++round) {
        Error failure;
        const std::size_t count = trySend(exchange->pieces, failure);
        if (failure == boost::asio::error::would_block)
            break;
        if (failure) {
            finish();
            return;
        }
        if (consume(count)) {
            sent();
            return;
        }
    }
    startSend(exchange->pieces);
}

/// Takes `count` sent bytes off the pieces; true when nothing is left.
bool Connection::consume(std::size_t count) {
    bool done = true;
    for (boost::asio::const_buffer& piece : exchange->pieces) {
        const std::size_t part = std::min(count, piece.size());
        piece += part;
        count -= part;
        done = done && piece.size() == 0;
    }
    return done;
}

void Connection::onSent(const Error& failure, std::size_t count) {
    if (failure) {
        finish();
        return;
    }
    enter(Phase::Sending, server.clientMillis);
    if (consume(count))
        sent();
    else
        send();
}

void Connection::sent() {
    if (exchange->interim) {
        exchange->interim = false;
        enter(Phase::Body, server.clientMillis);
        readMore();
    } else if (exchange->refused || (exchange->closeAfter && (!input.empty() || mustDrain()))) {
        drain();
    } else if (exchange->closeAfter) {
        finish();
    } else if (input.empty()) {
        rest();
    } else {
        // Others of the core go first: a client may have sent any number of requests at once.
        exchange.reset();
        enter(Phase::Head, server.clientMillis);
        boost::asio::post(core.context(), [self = shared_from_this()] { self->advance(); });
    }
}

/// Ends the sending side and reads on for a moment: closing a socket with unread input would take
/// the reply back.
void Connection::drain() {
    exchange.reset();
    input.consume(input.view().size());
    input.prepare(FrontLimits::drainRead);
    enter(Phase::Draining, FrontLimits::drainMillis);
    startClose(input.tail(), input.room());
}

void Connection::finish() {
    if (!listed)
        return;
    listed = false;
    list.remove(position);
    Error ignored;
    socket().close(ignored);
}

void Connection::enforceLimit(std::int64_t now) {
    if (now < deadline.load(std::memory_order_relaxed))
        return;
    const bool again = expired.exchange(true);
    deadline.store(now + FrontLimits::drainMillis, std::memory_order_relaxed);
    const Phase current = phase.load();
    if (current == Phase::Sending) {
        // What the client doesn't take is not kept for it either.
        const linger none{1, 0};
        setsockopt(socket().native_handle(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
        shutDown(SHUT_RDWR);
    } else {
        shutDown(again || current == Phase::Draining ? SHUT_RDWR : SHUT_RD);
    }
}

void Connection::closeIfResting() {
    const Phase current = phase.load();
    if (current == Phase::Handshake || current == Phase::Resting || current == Phase::Head ||
        current == Phase::Body)
        shutDown(SHUT_RDWR);
}

bool Connection::evict(std::int64_t now) {
    const std::int64_t since = deadline.load(std::memory_order_relaxed) - server.idleMillis;
    if (phase.load() != Phase::Resting || expired.load() ||
        now - since < FrontLimits::evictAfterMillis)
        return false;
    expired.store(true);
    shutDown(SHUT_RD);
    return true;
}

void Connection::shutDown(int how) {
    ::shutdown(socket().native_handle(), how);
}

void Connection::logLine(const std::string& text) {
    Error ignored;
    const auto endpoint = socket().remote_endpoint(ignored);
    server.log.line("web server " + server.realm + ": " + endpoint.address().to_string() + ": " +
                    text);
}

} // namespace Portico

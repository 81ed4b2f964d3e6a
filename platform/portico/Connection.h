#pragma once

#include "platform/portico/ConnectionList.h"
#include "platform/portico/InputBuffer.h"
#include "platform/portico/RequestReader.h"
#include "platform/portico/WebClient.h"

#include <array>
#include <atomic>
#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Portico {

class IoCore;
struct ServerState;

/// One client's connection from its acceptance to its end.
///
/// Everything happens in handlers of its core, with exactly one operation outstanding, so that no
/// two of them run at once and none needs a lock. That operation holds the connection; when there
/// is none left, it is gone. The one thing that others do to it is to shut its socket down, with
/// the list's mutex held, which ends the outstanding operation.
class Connection : public WebClient, public std::enable_shared_from_this<Connection> {
public:
    using Socket = boost::asio::ip::tcp::socket;
    using Error = boost::system::error_code;

    virtual ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Begins, in a handler of the core.
    void start();

    /// For the list, with its mutex held: see to the time limit; end it unless a page runs or a
    /// reply is under way; end it if it rests, which true tells.
    void enforceLimit(std::int64_t now);
    void closeIfResting();
    bool evict(std::int64_t now);

    /// Milliseconds of a clock that never goes back.
    static std::int64_t clockMillis();

protected:
    /// Two pieces at most: a reply's head and body.
    using Pieces = std::array<boost::asio::const_buffer, 2>;

    Connection(IoCore& ownCore, ConnectionList& ownList, ServerState& ownServer);

    virtual Socket& socket() = 0;
    /// Prepares the channel, then onReady.
    virtual void startHandshake() = 0;
    /// Reads into the given memory, then onRead.
    virtual void startRead(char* data, std::size_t size) = 0;
    /// Sends what can be sent at once.
    virtual std::size_t trySend(const Pieces& pieces, Error& failure) = 0;
    /// Sends some of it, or waits until that is possible, then onSent.
    virtual void startSend(const Pieces& pieces) = 0;
    /// Tells the client that nothing more comes, then onRead.
    virtual void startClose(char* data, std::size_t size) = 0;
    /// True where the last reply could be lost by closing at once.
    virtual bool mustDrain() = 0;

    void onReady(const Error& failure);
    void onRead(const Error& failure, std::size_t count);
    void onSent(const Error& failure, std::size_t count);

    /// Must be called by the destructors of derived classes, before their socket goes.
    void finish();

private:
    enum class Phase : std::uint8_t {
        Handshake, ///< also before the first byte of TLS
        Resting,   ///< between two requests
        Head,
        Body,
        Waiting, ///< for a place for its page
        Page,
        Sending,
        Draining
    };
    struct Exchange;

    void enter(Phase next, std::int64_t limitMillis);
    void rest();
    void advance();
    void readMore();
    void sendContinue();
    void takePlace();
    void serve();
    void runPage();
    void pageFailed(const char* reason);
    void refuse(const Refusal& refusal);
    void answer(bool close);
    void send();
    bool consume(std::size_t count);
    void sent();
    void drain();
    void shutDown(int how);
    void logLine(const std::string& text);

    IoCore& core;
    ConnectionList& list;
    ServerState& server;
    ConnectionList::Position position;
    bool listed = false;

    std::atomic<Phase> phase{Phase::Handshake};
    std::atomic<bool> expired{false};
    std::atomic<std::int64_t> deadline; ///< of the current phase, by clockMillis

    InputBuffer input;
    std::unique_ptr<Exchange> exchange; ///< null while the connection rests
};

} // namespace Portico

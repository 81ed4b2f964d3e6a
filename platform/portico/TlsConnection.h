#pragma once

#include "platform/portico/Connection.h"

#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>

namespace Portico {

/// A connection over TLS.
class TlsConnection final : public Connection {
public:
    TlsConnection(Socket accepted, boost::asio::ssl::context& context, IoCore& ownCore,
                  ConnectionList& ownList, ServerState& ownServer);
    ~TlsConnection() override;

private:
    Socket& socket() override { return channel.next_layer(); }
    void startHandshake() override;
    void startRead(char* data, std::size_t size) override;
    std::size_t trySend(const Pieces& pieces, Error& failure) override;
    void startSend(const Pieces& pieces) override;
    void startClose(char* data, std::size_t size) override;
    bool mustDrain() override { return true; }
    std::shared_ptr<TlsConnection> self();

    boost::asio::ssl::stream<Socket> channel;
    bool draining = false; ///< what still comes is read below the encryption
};

} // namespace Portico

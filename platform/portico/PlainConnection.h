#pragma once

#include "platform/portico/Connection.h"

namespace Portico {

/// A connection without encryption.
class PlainConnection final : public Connection {
public:
    PlainConnection(Socket accepted, IoCore& ownCore, ConnectionList& ownList,
                    ServerState& ownServer);
    ~PlainConnection() override;

private:
    Socket& socket() override { return channel; }
    void startHandshake() override;
    void startRead(char* data, std::size_t size) override;
    std::size_t trySend(const Pieces& pieces, Error& failure) override;
    void startSend(const Pieces& pieces) override;
    void startClose(char* data, std::size_t size) override;
    bool mustDrain() override;
    std::shared_ptr<PlainConnection> self();

    Socket channel;
};

} // namespace Portico

#include "platform/portico/PlainConnection.h"

#include <utility>

namespace Portico {

PlainConnection::PlainConnection(Socket accepted, IoCore& ownCore, ConnectionList& ownList,
                                 ServerState& ownServer)
    : Connection(ownCore, ownList, ownServer), channel(std::move(accepted)) {}

PlainConnection::~PlainConnection() {
    finish();
}

std::shared_ptr<PlainConnection> PlainConnection::self() {
    return std::static_pointer_cast<PlainConnection>(shared_from_this());
}

void PlainConnection::startHandshake() {
    onReady(Error());
}

void PlainConnection::startRead(char* data, std::size_t size) {
    channel.async_read_some(
        boost::asio::buffer(data, size),
        [self = self()](const Error& failure, std::size_t count) { self->onRead(failure, count); });
}

std::size_t PlainConnection::trySend(const Pieces& pieces, Error& failure) {
    // A reply without a body goes the shorter way through the system.
    return pieces[1].size() == 0 ? channel.write_some(pieces[0], failure)
                                 : channel.write_some(pieces, failure);
}

void PlainConnection::startSend(const Pieces&) {
    channel.async_wait(Socket::wait_write,
                       [self = self()](const Error& failure) { self->onSent(failure, 0); });
}

void PlainConnection::startClose(char* data, std::size_t size) {
    Error ignored;
    channel.shutdown(Socket::shutdown_send, ignored);
    startRead(data, size);
}

bool PlainConnection::mustDrain() {
    Error ignored;
    return channel.available(ignored) > 0;
}

} // namespace Portico

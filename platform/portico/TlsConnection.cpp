#include "platform/portico/TlsConnection.h"

#include <boost/asio/error.hpp>
#include <openssl/ssl.h>
#include <utility>

namespace Portico {

TlsConnection::TlsConnection(Socket accepted, boost::asio::ssl::context& context, IoCore& ownCore,
                             ConnectionList& ownList, ServerState& ownServer)
    : Connection(ownCore, ownList, ownServer), channel(std::move(accepted), context) {}

TlsConnection::~TlsConnection() {
    // The library forgets the session of a connection without farewells. Idle ones end so, and a
    // client that comes back is to find its session; after an alert it is forgotten all the same.
    SSL_set_shutdown(channel.native_handle(), SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
    finish();
}

std::shared_ptr<TlsConnection> TlsConnection::self() {
    return std::static_pointer_cast<TlsConnection>(shared_from_this());
}

void TlsConnection::startHandshake() {
    channel.async_handshake(boost::asio::ssl::stream_base::server,
                            [self = self()](const Error& failure) { self->onReady(failure); });
}

void TlsConnection::startRead(char* data, std::size_t size) {
    const auto done = [self = self()](const Error& failure, std::size_t count) {
        self->onRead(failure, count);
    };
    if (draining)
        channel.next_layer().async_read_some(boost::asio::buffer(data, size), done);
    else
        channel.async_read_some(boost::asio::buffer(data, size), done);
}

std::size_t TlsConnection::trySend(const Pieces&, Error& failure) {
    failure = boost::asio::error::would_block;
    return 0;
}

void TlsConnection::startSend(const Pieces& pieces) {
    channel.async_write_some(pieces, [self = self()](const Error& failure, std::size_t count) {
        self->onSent(failure, count);
    });
}

void TlsConnection::startClose(char* data, std::size_t size) {
    channel.async_shutdown([self = self(), data, size](const Error& failure) {
        if (failure.category() != boost::asio::error::get_ssl_category() || !failure) {
            // The client's own farewell, or its end.
            self->onRead(boost::asio::error::eof, 0);
            return;
        }
        // It still sends, which no longer counts: read on below the encryption, so that closing
        // with unread input does not take the reply back.
        self->draining = true;
        Error ignored;
        self->channel.next_layer().shutdown(Socket::shutdown_send, ignored);
        self->startRead(data, size);
    });
}

} // namespace Portico

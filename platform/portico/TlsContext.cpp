#include "platform/portico/TlsContext.h"

#include "platform/portico/ThreadedWebServer.h"

#include <openssl/ssl.h>

namespace Portico {

namespace ssl = boost::asio::ssl;

namespace {

int refusePassword(char*, int, int, void*) {
    return -1;
}

void check(const boost::system::error_code& failure, const char* what, const std::string& file) {
    if (failure)
        throw ListenError(std::string("cannot use ") + what + " " + file + ": " +
                          failure.message());
}

} // namespace

std::unique_ptr<ssl::context> makeTlsContext(const std::string& certFile,
                                             const std::string& keyFile) {
    auto context = std::make_unique<ssl::context>(ssl::context::tls_server);
    SSL_CTX* const handle = context->native_handle();
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    // A reading side that was shut down by the time limit must not take the writing side with it.
    SSL_CTX_set_options(handle, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                    SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(handle, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_default_passwd_cb(handle, refusePassword);

    boost::system::error_code failure;
    context->use_certificate_chain_file(certFile, failure);
    check(failure, "certificate", certFile);
    context->use_private_key_file(keyFile, ssl::context::pem, failure);
    check(failure, "key", keyFile);
    return context;
}

} // namespace Portico

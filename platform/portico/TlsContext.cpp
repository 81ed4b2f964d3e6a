#include "platform/portico/TlsContext.h"

#include "platform/portico/ThreadedWebServer.h"

#include <memory>
#include <openssl/ssl.h>
#include <string>

namespace Portico {

namespace ssl = boost::asio::ssl;

namespace {

[[noreturn]] void refuse(const char* what, const std::string& file, const std::string& reason) {
    throw ListenError(std::string("cannot use ") + what + " " + file + ": " + reason);
}

/// Answers for the person whom the library would ask for the password of an encrypted file. The
/// result tells whether it was asked.
std::shared_ptr<bool> refusePassword(ssl::context& context) {
    const auto asked = std::make_shared<bool>(false);
    context.set_password_callback([asked](std::size_t, ssl::context::password_purpose) {
        *asked = true;
        return std::string();
    });
    return asked;
}

} // namespace

std::unique_ptr<ssl::context> makeTlsContext(const std::string& certFile,
                                             const std::string& keyFile) {
    if (keyFile.empty())
        refuse("certificate", certFile, "no key is given");
    if (certFile.empty())
        refuse("key", keyFile, "no certificate is given");
    auto context = std::make_unique<ssl::context>(ssl::context::tls_server);
    SSL_CTX* const handle = context->native_handle();
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    // A reading side that was shut down by the time limit must not take the writing side with it.
    SSL_CTX_set_options(handle, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION |
                                    SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(handle, SSL_MODE_RELEASE_BUFFERS);

    const std::shared_ptr<bool> isEncrypted = refusePassword(*context);
    boost::system::error_code failure;
    context->use_certificate_chain_file(certFile, failure);
    if (failure)
        refuse("certificate", certFile, failure.message());
    context->use_private_key_file(keyFile, ssl::context::pem, failure);
    if (failure)
        refuse("key", keyFile, *isEncrypted ? "it is encrypted" : failure.message());
    return context;
}

} // namespace Portico

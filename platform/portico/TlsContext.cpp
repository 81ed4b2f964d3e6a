#include "platform/portico/TlsContext.h"

#include "platform/portico/ThreadedWebServer.h"

#include <memory>
#include <openssl/ssl.h>
#include <string>

namespace Portico {

namespace ssl = boost::asio::ssl;

namespace {

// Every cipher has forward secrecy and authenticates what it encrypts: no RSA key exchange, no CBC.
// AES with 128 bits goes first, as it costs least; a client without hardware for AES, which names
// ChaCha20 first, gets that.
constexpr const char* ciphers12 = "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256:"
                                  "ECDHE-ECDSA-AES256-GCM-SHA384:ECDHE-RSA-AES256-GCM-SHA384:"
                                  "ECDHE-ECDSA-CHACHA20-POLY1305:ECDHE-RSA-CHACHA20-POLY1305";
constexpr const char* ciphers13 =
    "TLS_AES_128_GCM_SHA256:TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";
constexpr const char* groups = "X25519:P-256:P-384";

/// By the library's count: keys and signatures of 112 bits at least, which RSA has with 2048.
constexpr int securityLevel = 2;

constexpr long keptSessions = 1024; ///< about 1 KiB each
constexpr long sessionSeconds = 3600;

void restrictCiphers(SSL_CTX* handle) {
    SSL_CTX_set_min_proto_version(handle, TLS1_2_VERSION);
    SSL_CTX_set_security_level(handle, securityLevel);
    if (SSL_CTX_set_cipher_list(handle, ciphers12) != 1 ||
        SSL_CTX_set_ciphersuites(handle, ciphers13) != 1 ||
        SSL_CTX_set1_groups_list(handle, groups) != 1)
        throw ListenError("cannot use TLS: the library lacks a cipher or curve");
    SSL_CTX_set_options(handle, SSL_OP_CIPHER_SERVER_PREFERENCE | SSL_OP_PRIORITIZE_CHACHA);
}

/// Clients that come back resume a session which the server keeps. Tickets would need none kept,
/// but the library uses one key for all of them as long as the process lives, and who gets hold of
/// that can read everything that was ever recorded.
void keepSessions(SSL_CTX* handle) {
    SSL_CTX_set_options(handle, SSL_OP_NO_TICKET);
    SSL_CTX_set_num_tickets(handle, 1);
    SSL_CTX_set_session_cache_mode(handle, SSL_SESS_CACHE_SERVER);
    SSL_CTX_sess_set_cache_size(handle, keptSessions);
    SSL_CTX_set_timeout(handle, sessionSeconds);
}

[[noreturn]] void refuse(const char* what, const std::string& file, const std::string& reason) {
    throw ListenError(std::string("cannot use ") + what + " " + file + ": " + reason);
}

/// Answers for the person whom the library would ask for the password of an encrypted file. The
/// result tells whether it was asked.
std::shared_ptr<bool> refusePassword(ssl::context& context) {
    auto asked = std::make_shared<bool>(false);
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
    restrictCiphers(handle);
    keepSessions(handle);
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

#include "platform/portico/support/Certificate.h"
#include "platform/portico/support/RawClient.h"
#include "platform/portico/support/TestServer.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <memory>
#include <openssl/ssl.h>
#include <string>

namespace Portico {
namespace {

using Support::RawClient;
using Support::RawReply;
using Support::TestServer;

/// A client over TLS that trusts the server's certificate file alone.
class TlsClient : public RawClient {
public:
    /// `ciphers` and `groups` are what it offers, or empty for all that it can.
    TlsClient(unsigned short port, const std::string& certFile, int newest = TLS1_3_VERSION,
              const std::string& ciphers = "", const std::string& groups = "")
        : RawClient(port), context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free),
          session(nullptr, &SSL_free) {
        SSL_CTX_load_verify_locations(context.get(), certFile.c_str(), nullptr);
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
        SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
        SSL_CTX_set_max_proto_version(context.get(), newest);
        SSL_CTX_set_security_level(context.get(), 0);
        if (!ciphers.empty())
            SSL_CTX_set_cipher_list(context.get(), ciphers.c_str());
        if (!groups.empty())
            SSL_CTX_set1_groups_list(context.get(), groups.c_str());
        SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);
        session.reset(SSL_new(context.get()));
        SSL_set_fd(session.get(), handle());
        connected = SSL_connect(session.get()) == 1;
    }

    bool send(const std::string& text) override {
        return text.empty() ||
               SSL_write(session.get(), text.data(), static_cast<int>(text.size())) > 0;
    }

    std::string cipher() const { return SSL_get_cipher_name(session.get()); }

    bool connected = false;

protected:
    long receive(char* data, std::size_t size) override {
        return SSL_read(session.get(), data, static_cast<int>(size));
    }

private:
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context;
    std::unique_ptr<SSL, decltype(&SSL_free)> session;
};

struct ThreadedWebServerTls : testing::Test {
    ThreadedWebServerTls() { EXPECT_TRUE(Support::writeCertificate(certFile, keyFile)); }

    /// What start() says of these files; "(started)" if it does not mind.
    std::string refusal(const std::string& cert, const std::string& key) {
        TestServer other;
        try {
            other.start(cert, key);
        } catch (const ListenError& failure) {
            return failure.what();
        }
        return "(started)";
    }

    ::Support::TemporaryFolder folder;
    const std::string certFile = folder.path("cert.pem");
    const std::string keyFile = folder.path("key.pem");
    TestServer test;
};

TEST_F(ThreadedWebServerTls, servesRequests) {
    std::string large(2000000, 'x');
    test.page("/large", [&large](const auto&, auto& reply) {
        reply.body() = large;
        return true;
    });
    TlsClient client(test.start(certFile, keyFile), certFile);
    ASSERT_TRUE(client.connected);
    EXPECT_EQ(client.get("/hello").body, "hello");
    EXPECT_TRUE(client.get("/large").body == large);
    client.send("POST /echo HTTP/1.1\r\nHost: h\r\nContent-Length: 100000\r\n\r\n");
    client.send(std::string(100000, 'y'));
    EXPECT_EQ(client.reply().body.size(), 100000u);
    client.send("GET /hello HTTP/1.1\r\nHost: h\r\n\r\nGET /echo HTTP/1.1\r\nHost: h\r\n"
                "Connection: close\r\n\r\n");
    EXPECT_EQ(client.reply().body, "hello");
    EXPECT_EQ(client.reply().code, 200);
    EXPECT_TRUE(client.isClosed());
}

TEST_F(ThreadedWebServerTls, refusesMalformedRequests) {
    TlsClient client(test.start(certFile, keyFile), certFile);
    client.send("nonsense\r\n\r\n");
    EXPECT_EQ(client.reply().code, 400);
    EXPECT_TRUE(client.isClosed());
}

TEST_F(ThreadedWebServerTls, takesNothingOlderThan12) {
    const unsigned short port = test.start(certFile, keyFile);
    EXPECT_FALSE(TlsClient(port, certFile, TLS1_1_VERSION).connected);
    TlsClient client(port, certFile, TLS1_2_VERSION);
    EXPECT_TRUE(client.connected);
    EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST_F(ThreadedWebServerTls, takesStrongCiphersAlone) {
    const unsigned short port = test.start(certFile, keyFile);
    for (const char* weak :
         {"AES128-GCM-SHA256", "AES256-GCM-SHA384", "AES128-SHA", "AES256-SHA256",
          "ECDHE-ECDSA-AES128-SHA", "ECDHE-ECDSA-AES256-SHA384", "ECDHE-ECDSA-AES128-CCM"})
        EXPECT_FALSE(TlsClient(port, certFile, TLS1_2_VERSION, weak).connected) << weak;
    for (const char* strong : {"ECDHE-ECDSA-AES128-GCM-SHA256", "ECDHE-ECDSA-AES256-GCM-SHA384",
                               "ECDHE-ECDSA-CHACHA20-POLY1305"})
        EXPECT_TRUE(TlsClient(port, certFile, TLS1_2_VERSION, strong).connected) << strong;
}

TEST_F(ThreadedWebServerTls, choosesTheCipherItself) {
    const unsigned short port = test.start(certFile, keyFile);
    const std::string costly = "ECDHE-ECDSA-AES256-GCM-SHA384";
    const std::string cheap = "ECDHE-ECDSA-AES128-GCM-SHA256";
    const std::string soft = "ECDHE-ECDSA-CHACHA20-POLY1305";
    for (const std::string& offer :
         {costly + ":" + cheap, cheap + ":" + costly, costly + ":" + soft + ":" + cheap})
        EXPECT_EQ(TlsClient(port, certFile, TLS1_2_VERSION, offer).cipher(), cheap) << offer;
    // Whoever names it first computes it faster.
    EXPECT_EQ(TlsClient(port, certFile, TLS1_2_VERSION, soft + ":" + cheap).cipher(), soft);
    EXPECT_EQ(TlsClient(port, certFile).cipher(), "TLS_AES_128_GCM_SHA256");
}

TEST_F(ThreadedWebServerTls, agreesOnStrongKeysAlone) {
    const unsigned short port = test.start(certFile, keyFile);
    for (const char* good : {"X25519", "P-256", "P-384"})
        EXPECT_TRUE(TlsClient(port, certFile, TLS1_3_VERSION, "", good).connected) << good;
    for (const char* other : {"P-521", "X448", "ffdhe2048"})
        EXPECT_FALSE(TlsClient(port, certFile, TLS1_3_VERSION, "", other).connected) << other;
}

TEST_F(ThreadedWebServerTls, closesPlainConnectionsOnly) {
    const unsigned short port = test.start(certFile, keyFile);
    TlsClient client(port, certFile);
    RawClient stranger(port);
    stranger.send("GET /hello HTTP/1.1\r\nHost: h\r\n\r\n");
    EXPECT_EQ(stranger.rest().find("HTTP/1.1 200"), std::string::npos);
    EXPECT_EQ(client.get("/hello").body, "hello");
}

TEST_F(ThreadedWebServerTls, losesPatience) {
    test.server.threadParams.clientSeconds = 1;
    test.server.threadParams.idleSeconds = 1;
    const unsigned short port = test.start(certFile, keyFile);
    RawClient silent(port);
    EXPECT_TRUE(silent.isClosed());
    TlsClient rested(port, certFile);
    EXPECT_EQ(rested.get("/hello").code, 200);
    EXPECT_TRUE(rested.isClosed());
    TlsClient slow(port, certFile);
    slow.send("GET /hel");
    const RawReply reply = slow.reply();
    EXPECT_TRUE(reply.code == 408 || reply.head.empty());
}

TEST_F(ThreadedWebServerTls, stopsWithClientsConnected) {
    const unsigned short port = test.start(certFile, keyFile);
    TlsClient rested(port, certFile);
    EXPECT_EQ(rested.get("/hello").code, 200);
    RawClient silent(port);
    TlsClient head(port, certFile);
    head.send("GET /");
    test.server.stop();
    EXPECT_EQ(rested.rest(), "");
    EXPECT_EQ(silent.rest(), "");
    EXPECT_EQ(head.rest(), "");
}

TEST_F(ThreadedWebServerTls, doesNotStartWithUnusableFiles) {
    const std::string rubbish = folder.write("rubbish.pem", "rubbish");
    const std::string absent = folder.path("absent.pem");
    EXPECT_EQ(refusal(certFile, keyFile), "(started)");
    EXPECT_EQ(refusal(absent, keyFile).find("cannot use certificate " + absent + ": "), 0u);
    EXPECT_EQ(refusal(rubbish, keyFile).find("cannot use certificate " + rubbish + ": "), 0u);
    EXPECT_EQ(refusal(certFile, absent).find("cannot use key " + absent + ": "), 0u);
    EXPECT_EQ(refusal(certFile, rubbish).find("cannot use key " + rubbish + ": "), 0u);
    EXPECT_EQ(refusal(certFile, ""), "cannot use certificate " + certFile + ": no key is given");
    EXPECT_EQ(refusal("", keyFile), "cannot use key " + keyFile + ": no certificate is given");
}

TEST_F(ThreadedWebServerTls, asksNobodyForAPassPhrase) {
    const std::string locked = folder.path("locked.pem");
    const std::string other = folder.path("other.pem");
    ASSERT_TRUE(Support::writeCertificate(other, locked, "phrase"));
    EXPECT_EQ(refusal(other, locked), "cannot use key " + locked + ": it is encrypted");
}

TEST_F(ThreadedWebServerTls, noticesAKeyOfAnotherCertificate) {
    const std::string other = folder.path("other.pem");
    ASSERT_TRUE(Support::writeCertificate(other, folder.path("other-key.pem")));
    EXPECT_EQ(refusal(other, keyFile).find("cannot use key " + keyFile + ": "), 0u);
}

} // namespace
} // namespace Portico

#include "platform/portico/support/Certificate.h"

#include <cstdio>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace Portico::Support {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;

bool sign(X509* certificate, EVP_PKEY* key) {
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
    X509_set_pubkey(certificate, key);
    X509_NAME* const name = X509_get_subject_name(certificate);
    const unsigned char text[] = "localhost";
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    return X509_sign(certificate, key, EVP_sha256()) > 0;
}

} // namespace

bool writeCertificate(const std::string& certFile, const std::string& keyFile,
                      const std::string& passPhrase) {
    const Key key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const Certificate certificate(X509_new(), &X509_free);
    if (!key || !certificate || !sign(certificate.get(), key.get()))
        return false;
    const File certOut(std::fopen(certFile.c_str(), "w"), &std::fclose);
    const File keyOut(std::fopen(keyFile.c_str(), "w"), &std::fclose);
    if (!certOut || !keyOut)
        return false;
    const EVP_CIPHER* const cipher = passPhrase.empty() ? nullptr : EVP_aes_256_cbc();
    const auto* const phrase = reinterpret_cast<const unsigned char*>(passPhrase.data());
    return PEM_write_X509(certOut.get(), certificate.get()) == 1 &&
           PEM_write_PrivateKey(keyOut.get(), key.get(), cipher, cipher ? phrase : nullptr,
                                static_cast<int>(passPhrase.size()), nullptr, nullptr) == 1;
}

} // namespace Portico::Support

#include "framework/PagePolicy.h"

#include "platform/portico/MessageHeader.h"

#include <array>
#include <openssl/evp.h>

namespace OstrandService::PagePolicy {

namespace {

constexpr const char* common = "default-src 'none'; img-src 'self'; base-uri 'none'; "
                               "form-action 'none'; frame-ancestors 'none'; ";

/// The source that stands for exactly this inline text.
std::string hashSource(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    (void)EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr);
    // Four characters for every three bytes begun, and the zero byte.
    std::array<unsigned char, (EVP_MAX_MD_SIZE + 2) / 3 * 4 + 1> encoded{};
    const int length = EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(size));
    return "'sha256-" + std::string(encoded.begin(), encoded.begin() + length) + "'";
}

} // namespace

std::string withoutScripts() {
    return std::string(common) + "sandbox";
}

std::string withScript(const std::string& library, const std::string& script,
                       const std::string& style) {
    return std::string(common) + "script-src " + library + " " + hashSource(script) +
           "; style-src " + hashSource(style) + "; sandbox allow-scripts";
}

Portico::MessageHeader header() {
    Portico::MessageHeader fields;
    fields.appendParam("Content-Security-Policy", withoutScripts());
    fields.appendParam("X-Content-Type-Options", "nosniff");
    fields.appendParam("Referrer-Policy", "no-referrer");
    return fields;
}

} // namespace OstrandService::PagePolicy

// Addresses, percent-encoding and the names of uploads.

#include "platform/portico/URL.h"
#include "platform/hub/UploadName.h"
#include "platform/hub/UrlCoding.h"
#include "tests/fuzz/Input.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(Fuzz::textOf(data, size));
    const Portico::URL url(text);
    Fuzz::require(url.getPort() >= 0 && url.getPort() <= 65535);
    Fuzz::require(url.getHost().find_first_of("/?#\\@") == std::string::npos);
    const Portico::URL based(text, Portico::URL("http://base:8080"));
    Fuzz::require(based.getPort() >= 0 && based.getPort() <= 65535);
    Fuzz::require(url_decode(url_encode(text)) == text);
    const std::string name = OstrandService::uploadFileName(text);
    Fuzz::require(name.find('/') == std::string::npos && name != "." && name != "..");
    return 0;
}

// The target of a request: whatever is accepted stays below the root.

#include "platform/portico/RequestTarget.h"
#include "tests/fuzz/Input.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string path;
    Config::ParamBag query;
    if (!Portico::RequestTarget::parse(Fuzz::textOf(data, size), path, query))
        return 0;
    Fuzz::require(!path.empty() && path.front() == '/');
    const std::string closed = path + "/";
    Fuzz::require(closed.find("/../") == std::string::npos);
    Fuzz::require(closed.find("/./") == std::string::npos);
    for (const char c : path)
        Fuzz::require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    return 0;
}

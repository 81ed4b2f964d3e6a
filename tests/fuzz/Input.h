#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// What a fuzz target is given, and how it says that a promise was broken.
namespace Fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Ends the process, which makes the input a finding.
inline void require(bool kept) {
    if (!kept)
        std::abort();
}

} // namespace Fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Portico {

/// Takes a chunked body apart as it arrives. Extensions and trailers are read and dropped: a
/// trailer never becomes a header. One decoder for each body.
class ChunkedDecoder {
public:
    enum class Result { NeedMore, Complete, Malformed, TooLarge };

    /// `limit` is the most bytes that all chunks together may hold.
    explicit ChunkedDecoder(std::uint64_t limit) : left(limit) {}

    /// Appends the data in `received` to `body`. `used` is what belongs to this body; all of
    /// `received` unless the body is complete.
    Result decode(std::string_view received, std::string& body, std::size_t& used);

private:
    enum class State { SizeStart, Size, Extension, SizeEnd, Data, DataReturn, DataEnd, Trailer };

    Result step(char c);
    Result inSize(char c);
    Result inExtension(char c);
    Result inTrailer(char c);
    Result sizeKnown();

    State state = State::SizeStart;
    std::uint64_t left;      ///< bytes that may still come, without the current chunk's
    std::uint64_t chunk = 0; ///< bytes of the current chunk that are still to come
    std::size_t lineSize = 0;
    bool lineEmpty = true;
    bool behindReturn = false;
};

} // namespace Portico

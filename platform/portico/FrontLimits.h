#pragma once

#include <cstddef>
#include <cstdint>

/// The limits of the server that are no setting.
namespace Portico::FrontLimits {

constexpr std::size_t kibibyte = 1024;

/// Bytes of a request's head, from its first line to the empty one.
constexpr std::size_t headSize = 64 * kibibyte;

/// Bytes of empty lines that may stand before a request line.
constexpr std::size_t emptyLines = 4 * kibibyte;

/// Bytes of one size line of a chunked body, extensions included, and of all its trailers.
constexpr std::size_t chunkLine = 4 * kibibyte;

/// Bytes that a resting connection keeps for what comes next.
constexpr std::size_t restingBuffer = 1024;

/// Bytes that are read at once while a body arrives.
constexpr std::size_t bodyRead = 64 * kibibyte;

/// Milliseconds for which a connection that ends is still read, so that the client gets the reply
/// before it learns that the rest of what it sent was not wanted.
constexpr std::int64_t drainMillis = 2000;

/// Bytes that are read at once from a connection that ends.
constexpr std::size_t drainRead = 16 * kibibyte;

/// Milliseconds between two looks at the connections' time limits.
constexpr std::int64_t sweepMillis = 500;

/// Milliseconds until connections are accepted again after the process ran out of files.
constexpr std::int64_t acceptPauseMillis = 100;

/// Milliseconds that a connection must have rested before it is closed to get a file back.
constexpr std::int64_t evictAfterMillis = 1000;

/// Connections that are closed at once to get files back.
constexpr std::size_t evictCount = 16;

} // namespace Portico::FrontLimits

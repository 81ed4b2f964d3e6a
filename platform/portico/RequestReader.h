#pragma once

#include "platform/portico/ChunkedDecoder.h"
#include "platform/portico/HeadScanner.h"
#include "platform/portico/RequestHead.h"

#include <cstddef>
#include <cstdint>

namespace Portico {

class InputBuffer;

/// Puts one request together from what a connection receives. Knows no socket and no time. One
/// reader for each request; what stands behind the request stays in the buffer.
class RequestReader {
public:
    enum class Step {
        NeedMore,     ///< all that was there is used, or too little for a head is there
        SendContinue, ///< the client waits for a 100; asked for once, then NeedMore
        Complete,     ///< the request can be served
        Refused       ///< see refusal(); the rest of the input can't be understood
    };

    /// `largestBody` is the size of the largest body in bytes.
    explicit RequestReader(std::uint64_t largestBody)
        : bodyLimit(largestBody), decoder(largestBody) {}

    /// Uses what `input` holds.
    Step advance(InputBuffer& input);

    /// True once a byte of the request itself has arrived.
    bool hasBegun() const { return begun; }
    /// True from the end of the head on.
    bool inBody() const { return headDone; }

    const RequestHead& head() const { return headFields; }
    const Refusal& refusal() const { return why; }
    ProtocolHTTP::Request& request() { return result; }

private:
    bool skipEmptyLines(InputBuffer& input);
    Step readHead(InputBuffer& input);
    Step readBody(InputBuffer& input);
    Step readChunks(InputBuffer& input);
    Step refuse(unsigned code, const char* reason);

    const std::uint64_t bodyLimit;
    HeadScanner scanner;
    RequestHead headFields;
    ChunkedDecoder decoder;
    ProtocolHTTP::Request result;
    Refusal why;
    std::size_t skipped = 0; ///< bytes of empty lines before the request
    bool begun = false;
    bool headDone = false;
};

} // namespace Portico

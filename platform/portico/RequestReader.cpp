#include "platform/portico/RequestReader.h"

#include "platform/portico/FrontLimits.h"
#include "platform/portico/InputBuffer.h"

#include <algorithm>

namespace Portico {

RequestReader::Step RequestReader::advance(InputBuffer& input) {
    if (!headDone) {
        const Step step = readHead(input);
        if (step != Step::Complete)
            return step;
        headDone = true;
        if (headFields.contentLength > bodyLimit)
            return refuse(413, "body too large");
        const bool bodyFollows = headFields.chunked || headFields.contentLength > 0;
        // A client whose body is under way has given up waiting.
        if (headFields.expectsContinue && bodyFollows && input.empty())
            return Step::SendContinue;
    }
    return headFields.chunked ? readChunks(input) : readBody(input);
}

/// False where more empty lines came than anybody sends by mistake.
bool RequestReader::skipEmptyLines(InputBuffer& input) {
    while (input.view().substr(0, 2) == "\r\n") {
        skipped += 2;
        input.consume(2);
    }
    return skipped <= FrontLimits::emptyLines;
}

RequestReader::Step RequestReader::readHead(InputBuffer& input) {
    if (!begun) {
        if (!skipEmptyLines(input))
            return refuse(400, "too many empty lines");
        if (input.empty() || input.view() == "\r")
            return Step::NeedMore;
        begun = true;
    }
    switch (scanner.scan(input.view())) {
    case HeadScanner::Result::NeedMore:
        return Step::NeedMore;
    case HeadScanner::Result::Malformed:
        return refuse(400, "malformed head");
    case HeadScanner::Result::TooLarge:
        return refuse(431, "head too large");
    case HeadScanner::Result::Complete:
        break;
    }
    why = headFields.parse(input.view().substr(0, scanner.size()), result);
    if (why.code != 0)
        return Step::Refused;
    input.consume(scanner.size());
    return Step::Complete;
}

RequestReader::Step RequestReader::readBody(InputBuffer& input) {
    std::string& body = result.body();
    const std::uint64_t missing = headFields.contentLength - body.size();
    const std::size_t piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(missing, input.view().size()));
    body.append(input.view().data(), piece);
    input.consume(piece);
    return piece == missing ? Step::Complete : Step::NeedMore;
}

RequestReader::Step RequestReader::readChunks(InputBuffer& input) {
    std::size_t used = 0;
    const ChunkedDecoder::Result outcome = decoder.decode(input.view(), result.body(), used);
    input.consume(used);
    switch (outcome) {
    case ChunkedDecoder::Result::NeedMore:
        return Step::NeedMore;
    case ChunkedDecoder::Result::Complete:
        return Step::Complete;
    case ChunkedDecoder::Result::TooLarge:
        return refuse(413, "body too large");
    case ChunkedDecoder::Result::Malformed:
        break;
    }
    return refuse(400, "malformed chunk");
}

RequestReader::Step RequestReader::refuse(unsigned code, const char* reason) {
    why = {code, reason};
    return Step::Refused;
}

} // namespace Portico

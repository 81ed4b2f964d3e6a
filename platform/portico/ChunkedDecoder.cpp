#include "platform/portico/ChunkedDecoder.h"

#include "platform/config/Ascii.h"
#include "platform/portico/FrontLimits.h"

#include <algorithm>
#include <limits>

namespace Portico {

namespace {

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7f;
}

} // namespace

ChunkedDecoder::Result ChunkedDecoder::decode(std::string_view received, std::string& body,
                                              std::size_t& used) {
    used = 0;
    while (used < received.size()) {
        if (state == State::Data) {
            const std::size_t piece =
                static_cast<std::size_t>(std::min<std::uint64_t>(chunk, received.size() - used));
            body.append(received.data() + used, piece);
            used += piece;
            chunk -= piece;
            if (chunk == 0)
                state = State::DataReturn;
            continue;
        }
        const Result result = step(received[used++]);
        if (result != Result::NeedMore)
            return result;
    }
    return Result::NeedMore;
}

ChunkedDecoder::Result ChunkedDecoder::step(char c) {
    switch (state) {
    case State::SizeStart:
    case State::Size:
        return inSize(c);
    case State::Extension:
        return inExtension(c);
    case State::SizeEnd:
        return c == '\n' ? sizeKnown() : Result::Malformed;
    case State::DataReturn:
        state = State::DataEnd;
        return c == '\r' ? Result::NeedMore : Result::Malformed;
    case State::DataEnd:
        state = State::SizeStart;
        lineSize = 0;
        return c == '\n' ? Result::NeedMore : Result::Malformed;
    case State::Trailer:
        return inTrailer(c);
    case State::Data:
        break;
    }
    return Result::Malformed;
}

ChunkedDecoder::Result ChunkedDecoder::inSize(char c) {
    if (++lineSize > FrontLimits::chunkLine)
        return Result::Malformed;
    const int digit = Config::hexValue(c);
    if (digit >= 0) {
        if (chunk > std::numeric_limits<std::uint64_t>::max() / 16)
            return Result::Malformed;
        chunk = chunk * 16 + static_cast<std::uint64_t>(digit);
        state = State::Size;
        return Result::NeedMore;
    }
    if (state == State::SizeStart)
        return Result::Malformed;
    if (c == '\r')
        state = State::SizeEnd;
    else if (c == ';')
        state = State::Extension;
    else
        return Result::Malformed;
    return Result::NeedMore;
}

ChunkedDecoder::Result ChunkedDecoder::inExtension(char c) {
    if (++lineSize > FrontLimits::chunkLine)
        return Result::Malformed;
    if (c == '\r')
        state = State::SizeEnd;
    else if (isControl(c))
        return Result::Malformed;
    return Result::NeedMore;
}

ChunkedDecoder::Result ChunkedDecoder::sizeKnown() {
    lineSize = 0;
    if (chunk == 0) {
        state = State::Trailer;
        return Result::NeedMore;
    }
    if (chunk > left)
        return Result::TooLarge;
    left -= chunk;
    state = State::Data;
    return Result::NeedMore;
}

ChunkedDecoder::Result ChunkedDecoder::inTrailer(char c) {
    if (++lineSize > FrontLimits::chunkLine)
        return Result::Malformed;
    if (behindReturn) {
        if (c != '\n')
            return Result::Malformed;
        if (lineEmpty)
            return Result::Complete;
        behindReturn = false;
        lineEmpty = true;
    } else if (c == '\r') {
        behindReturn = true;
    } else if (isControl(c)) {
        return Result::Malformed;
    } else {
        lineEmpty = false;
    }
    return Result::NeedMore;
}

} // namespace Portico

#include "platform/portico/HeadScanner.h"

#include "platform/portico/FrontLimits.h"

namespace Portico {

HeadScanner::Result HeadScanner::scan(std::string_view received) {
    while (at < received.size()) {
        if (at == FrontLimits::headSize)
            return Result::TooLarge;
        const char c = received[at++];
        if (behindReturn) {
            if (c != '\n')
                return Result::Malformed;
            if (lineEmpty)
                return Result::Complete;
            behindReturn = false;
            lineEmpty = true;
        } else if (c == '\r') {
            behindReturn = true;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            const bool control = (byte < 0x20 && c != '\t') || byte == 0x7f;
            if (control || (lineEmpty && (c == ' ' || c == '\t')))
                return Result::Malformed;
            lineEmpty = false;
        }
    }
    return Result::NeedMore;
}

} // namespace Portico

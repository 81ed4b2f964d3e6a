#pragma once

#include <cstddef>
#include <string_view>

namespace Portico {

/// Finds the end of a request's head as it arrives, and refuses bytes that no head may hold: a
/// carriage return or line feed alone, another control character, a folded line. A header value
/// can therefore be put into a reply as it is. One scanner for each head.
class HeadScanner {
public:
    enum class Result { NeedMore, Complete, Malformed, TooLarge };

    /// Looks at what is new in `received`, which begins with the head's first byte each time.
    Result scan(std::string_view received);

    /// Bytes of the head, its empty line included, once it is complete.
    std::size_t size() const { return at; }

private:
    std::size_t at = 0;
    bool behindReturn = false;
    bool lineEmpty = true;
};

} // namespace Portico

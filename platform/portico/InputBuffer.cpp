#include "platform/portico/InputBuffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Portico {

void InputBuffer::consume(std::size_t count) {
    begin += count;
    if (begin == end)
        begin = end = 0;
}

void InputBuffer::prepare(std::size_t wanted) {
    const std::size_t held = end - begin;
    if (held == 0 && capacity < wanted) {
        // Nothing to carry over: the old memory goes before the new comes.
        data.reset();
        data.reset(new char[wanted]);
        capacity = wanted;
    } else if (held > capacity / 2) {
        const std::size_t larger = std::max(capacity * 2, wanted);
        std::unique_ptr<char[]> grown(new char[larger]);
        std::memcpy(grown.get(), data.get() + begin, held);
        data = std::move(grown);
        capacity = larger;
    } else if (begin > 0) {
        std::memmove(data.get(), data.get() + begin, held);
    }
    begin = 0;
    end = held;
}

void InputBuffer::shrink(std::size_t keep) {
    if (empty() && capacity > keep) {
        data.reset();
        capacity = 0;
    }
}

} // namespace Portico

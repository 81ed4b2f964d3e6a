#include "platform/portico/InputBuffer.h"

#include <algorithm>
#include <cstring>

namespace Portico {

void InputBuffer::consume(std::size_t count) {
    begin += count;
    if (begin == end)
        begin = end = 0;
}

void InputBuffer::prepare(std::size_t wanted) {
    if (empty() && capacity < wanted) {
        // Nothing to carry over: the old memory goes before the new comes.
        data.reset();
        capacity = 0;
        resize(wanted);
    } else if (end == capacity) {
        resize(begin > capacity / 2 ? capacity : std::max(capacity * 2, wanted));
    }
}

void InputBuffer::resize(std::size_t size) {
    std::unique_ptr<char[]> larger(new char[size]);
    if (!empty())
        std::memcpy(larger.get(), data.get() + begin, end - begin);
    data = std::move(larger);
    capacity = size;
    end -= begin;
    begin = 0;
}

void InputBuffer::shrink(std::size_t keep) {
    if (empty() && capacity > keep) {
        data.reset();
        capacity = 0;
    }
}

} // namespace Portico

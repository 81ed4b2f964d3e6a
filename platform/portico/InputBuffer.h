#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace Portico {

/// What a connection has received and not yet used. Grows while a head or a body arrives, holds
/// next to nothing while the connection rests. Used by one thread at a time.
class InputBuffer {
public:
    std::string_view view() const { return {data.get() + begin, end - begin}; }
    bool empty() const { return begin == end; }

    /// Drops `count` bytes at the front.
    void consume(std::size_t count);

    /// Makes room for `wanted` bytes where nothing is held, else for as many as are held.
    void prepare(std::size_t wanted);

    /// Where the next bytes go, after prepare.
    char* tail() { return data.get() + end; }
    std::size_t room() const { return capacity - end; }

    /// Takes in `count` bytes that were written to tail().
    void commit(std::size_t count) { end += count; }

    /// Gives an empty buffer's memory back if it is more than `keep` bytes.
    void shrink(std::size_t keep);

private:
    std::unique_ptr<char[]> data;
    std::size_t capacity = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
};

} // namespace Portico

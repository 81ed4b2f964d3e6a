#include "platform/kestrel/Memory.h"

#include <malloc.h>

namespace Kestrel {

void returnLargeBlocks() {
    constexpr int large = 4 * 1024 * 1024;
    // Setting either ends the allocator's own raising of both, which takes what is freed as a sign
    // of what will be wanted. Freed room at the end of the rest stays for up to twice as much.
    (void)::mallopt(M_MMAP_THRESHOLD, large);
    (void)::mallopt(M_TRIM_THRESHOLD, 2 * large);
}

} // namespace Kestrel

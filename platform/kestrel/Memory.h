#pragma once

namespace Kestrel {

/// Has blocks of 4 MiB and more given back to the system as soon as they are freed. The allocator
/// would else keep, for each thread that sends results, room for the largest ones of up to 32 MiB
/// that were ever sent at once. Called first, before other threads exist.
void returnLargeBlocks();

} // namespace Kestrel

#pragma once

#include <cstdint>

namespace Faults {

/// The place (Where) of a path; `nowhere` for one that is none of the test's.
std::uint32_t placeOf(const char* path);

/// The same for a path relative to an open folder.
std::uint32_t placeOf(int folder, const char* path);

/// The place that was noted for a descriptor.
std::uint32_t placeOf(int descriptor);

/// Notes the place of a new descriptor; returns the descriptor. A failed one, below 0, is passed
/// through.
int mark(int descriptor, std::uint32_t place);

/// Takes the folders from the text "CACHE:LOG". Called once, before any other thread runs.
void setFolders(const char* text);

} // namespace Faults

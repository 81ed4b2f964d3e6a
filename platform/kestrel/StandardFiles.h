#pragma once

namespace Kestrel {

/// Opens the null device as each of the descriptors 0 to 2 that the process was started without.
/// A log, or a client's connection, would else be opened under that number, and what is meant for
/// standard output or standard error would go there. Called first, before other threads exist.
void openStandardFiles();

} // namespace Kestrel

#pragma once

namespace Kestrel {

/// A named step on the way of a job to the disk, at which a test can end the process as a crash
/// would. Nothing at all, but in builds with OSTRAND_CRASH_POINTS: there the process kills itself
/// where the environment variable OSTRAND_CRASH_AT is "NAME:N" and the step of this name is reached
/// for the N-th time. Any thread.
#ifdef OSTRAND_CRASH_POINTS
void crashPoint(const char* name);
#else
inline void crashPoint(const char*) {}
#endif

} // namespace Kestrel

#include "platform/kestrel/CrashPoint.h"

#ifdef OSTRAND_CRASH_POINTS

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string>

namespace Kestrel {

namespace {

/// What the environment asks for; an empty name for nothing.
struct Wish {
    std::string name;
    long count = 1;

    Wish() {
        const char* const text = std::getenv("OSTRAND_CRASH_AT");
        if (!text)
            return;
        name = text;
        const std::string::size_type colon = name.rfind(':');
        if (colon == std::string::npos)
            return;
        count = std::atol(name.c_str() + colon + 1);
        name.erase(colon);
    }
};

} // namespace

void crashPoint(const char* name) {
    static const Wish wish;
    static std::atomic<long> reached{0};
    if (wish.name == name && ++reached == wish.count)
        ::raise(SIGKILL);
}

} // namespace Kestrel

#endif

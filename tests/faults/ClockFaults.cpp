// The time of day, which may be set forward and back at any moment. Other clocks run on.

#include "tests/faults/FaultTable.h"

#include <sys/time.h>
#include <time.h>

using namespace Faults;

namespace {

Real<int(clockid_t, timespec*)> realClock("clock_gettime");

/// Seconds to add to a reading.
time_t shift() {
    Table* const own = table();
    const std::int64_t seconds = own ? own->clockSeconds.load(std::memory_order_relaxed) : 0;
    if (seconds != 0)
        own->clockReadings.fetch_add(1, std::memory_order_relaxed);
    return static_cast<time_t>(seconds);
}

} // namespace

OSTRAND_CALL int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const int result = realClock.get()(clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        now->tv_sec += shift();
    return result;
}

OSTRAND_CALL time_t time(time_t* place) noexcept {
    timespec now{};
    realClock.get()(CLOCK_REALTIME_COARSE, &now);
    const time_t seconds = now.tv_sec + shift();
    if (place)
        *place = seconds;
    return seconds;
}

OSTRAND_CALL int gettimeofday(timeval* __restrict now, void* __restrict) noexcept {
    timespec precise{};
    const int result = realClock.get()(CLOCK_REALTIME, &precise);
    now->tv_sec = precise.tv_sec + shift();
    now->tv_usec = precise.tv_nsec / 1000;
    return result;
}

#include "platform/kestrel/Thread.h"

#include <cerrno>
#include <ctime>

namespace Kestrel {

Thread::~Thread() = default;

void Thread::start() {
    if (native.joinable())
        return;
    result = 0;
    native = std::thread([this] { result = run(); });
}

int Thread::join() {
    if (native.joinable())
        native.join();
    return result;
}

void Thread::sleep(unsigned long milliseconds) {
    timespec until = {};
    ::clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += static_cast<time_t>(milliseconds / 1000);
    until.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
    if (until.tv_nsec >= 1000000000L) {
        until.tv_nsec -= 1000000000L;
        ++until.tv_sec;
    }
    // To a point in time, so that signals, however many, neither shorten nor lengthen it.
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

} // namespace Kestrel

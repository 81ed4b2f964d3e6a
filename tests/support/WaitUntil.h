#pragma once

#include <chrono>
#include <thread>

namespace Support {

/// Waits until `condition` holds and returns true; false, so that a test fails and does not hang,
/// when it still does not after a minute.
template <typename Condition>
bool waitUntil(Condition condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace Support

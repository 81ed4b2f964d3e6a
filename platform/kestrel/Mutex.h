#pragma once

#include <mutex>

namespace Kestrel {

/// A plain mutex, not recursive. Any thread may use it.
class Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

private:
    friend class MutexGuard;
    std::mutex native;
};

/// Holds a Mutex from construction to destruction, or to unlock().
class MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) : lock(mutex.native) {}
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    /// Gives the mutex back early. A second call does nothing.
    void unlock() {
        if (lock.owns_lock())
            lock.unlock();
    }

private:
    std::unique_lock<std::mutex> lock;
};

} // namespace Kestrel

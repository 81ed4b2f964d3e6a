#pragma once

#include <atomic>
#include <thread>

namespace Kestrel {

/// Base of a class that is a thread: the subclass says what runs in run().
///
/// start() and join() are called by the owner, from one thread at a time. The owner joins before
/// it destroys the object: when the base destructor runs, the subclass's part is gone already, so
/// the base can't wait for it, and a thread that was not joined ends the process there.
class Thread {
public:
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    virtual ~Thread();

    /// Runs run() on a new thread. Does nothing while the thread of an earlier start has not been
    /// joined. Throws std::system_error where the system gives no thread. Not to be called from a
    /// constructor: run() is the subclass's.
    void start();

    /// Waits for the end of run() and returns its result, again at a second call; 0 where nothing
    /// was started.
    int join();

    /// Pauses the calling thread for at least this many milliseconds; a signal does not cut it
    /// short.
    static void sleep(unsigned long milliseconds);

protected:
    Thread() = default;

    /// The work of the thread. The result is what join() returns.
    virtual int run() = 0;

private:
    std::thread native;
    std::atomic<int> result{0};
};

} // namespace Kestrel

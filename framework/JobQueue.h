#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <deque>

namespace OstrandService {

class ServiceJobBase;

/// Blocking queue of jobs, without a bound. It holds a reference to each job that waits.
///
/// Any thread may use it. pushBack() and pushFront() leave the locking to the caller, who takes
/// `mutex` around them and notifies after releasing it; all other operations lock by themselves.
class JobQueue {
public:
    using Job = boost::shared_ptr<ServiceJobBase>;

    /// Appends a job; the caller holds `mutex`.
    void pushBack(const Job& job);

    /// Puts a job at the head; the caller holds `mutex`.
    void pushFront(const Job& job);

    /// Appends a job and wakes one worker.
    void push(const Job& job);

    /// Waits for a job and takes the oldest. Null once the queue is closed, also while jobs are
    /// still in it: those keep their state on disk and run after the next start.
    Job pop();

    /// True if no job waits.
    bool empty();

    /// Ends all waiting, for good. Jobs pushed later are stored and never handed out.
    void close();

    std::deque<Job> items;              ///< waiting jobs, oldest first; guarded by `mutex`
    boost::mutex mutex;                 ///< guards `items` and `closed`
    boost::condition_variable notEmpty; ///< waited on by the workers
    bool closed = false;                ///< set once, at shutdown; guarded by `mutex`
};

} // namespace OstrandService

#include "framework/JobQueue.h"

#include <utility>

namespace OstrandService {

void JobQueue::pushBack(const Job& job) {
    items.push_back(job);
}

void JobQueue::pushFront(const Job& job) {
    items.push_front(job);
}

void JobQueue::push(const Job& job) {
    {
        const boost::lock_guard<boost::mutex> lock(mutex);
        pushBack(job);
    }
    notEmpty.notify_one();
}

JobQueue::Job JobQueue::pop() {
    boost::unique_lock<boost::mutex> lock(mutex);
    while (items.empty() && !closed)
        notEmpty.wait(lock);
    if (closed)
        return Job();
    Job job = std::move(items.front());
    items.pop_front();
    return job;
}

bool JobQueue::empty() {
    const boost::lock_guard<boost::mutex> lock(mutex);
    return items.empty();
}

void JobQueue::close() {
    const boost::lock_guard<boost::mutex> lock(mutex);
    closed = true;
    notEmpty.notify_all();
}

} // namespace OstrandService

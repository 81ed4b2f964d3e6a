#include "platform/portico/StallMonitor.h"

#include "platform/portico/IoCore.h"

#include <algorithm>
#include <utility>

namespace Portico {

StallMonitor::~StallMonitor() {
    stop();
}

void StallMonitor::start(std::vector<IoCore*> cores) {
    watched = std::move(cores);
    thread = std::thread([this] { run(); });
}

void StallMonitor::stop() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
    }
    changed.notify_all();
    if (thread.joinable())
        thread.join();
}

void StallMonitor::wake() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        asleep.store(false);
    }
    changed.notify_all();
}

bool StallMonitor::quiet() const {
    return std::none_of(watched.begin(), watched.end(),
                        [](const IoCore* core) { return core->hasPages(); });
}

void StallMonitor::run() {
    std::unique_lock<std::mutex> lock(mutex);
    bool moved = true;
    while (!ended) {
        if (!moved && quiet()) {
            // A page that is entered between the two looks sees the flag, or is seen.
            asleep.store(true);
            if (quiet())
                changed.wait(lock, [this] { return ended || !asleep.load(); });
            asleep.store(false);
        }
        changed.wait_for(lock, interval, [this] { return ended; });
        if (ended)
            return;
        lock.unlock();
        moved = false;
        for (IoCore* const core : watched)
            moved = core->look() || moved;
        lock.lock();
    }
}

} // namespace Portico

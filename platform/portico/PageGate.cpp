#include "platform/portico/PageGate.h"

#include <utility>

namespace Portico {

bool PageGate::tryEnter() {
    return taken.fetch_add(1) < places;
}

void PageGate::wait(Waiter waiter) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (handedOver == 0) {
            waiters.push_back(std::move(waiter));
            return;
        }
        --handedOver;
    }
    waiter();
}

void PageGate::leave() {
    if (taken.fetch_sub(1) <= places)
        return;
    Waiter next;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (waiters.empty()) {
            ++handedOver;
            return;
        }
        next = std::move(waiters.front());
        waiters.pop_front();
    }
    next();
}

} // namespace Portico

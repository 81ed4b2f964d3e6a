#include "platform/hub/HubSender.h"

#include "platform/hub/MessageLog.h"

#include <atomic>
#include <deque>
#include <exception>
#include <future>
#include <optional>
#include <pthread.h>
#include <system_error>
#include <utility>

namespace OstrandHub {

namespace {

/// How long end() waits for a thread that has been told to end, before it lets it go.
constexpr std::chrono::milliseconds endLimit{500};

std::string addressOf(const HubMessage& message) {
    if (!message.multicast)
        return message.hostAndPort;
    return message.group.toString() + ":" + std::to_string(message.port);
}

void logFailure(const HubMessage& message, const std::string& reason) {
    OstrandService::MessageLog::the()->log("hub " + addressOf(message) + ": " + reason);
}

/// A message in the queue.
struct Item {
    HubMessage message;
    std::chrono::seconds renewal{0};
    bool last = false;       ///< what comes before it is given up to let it through
    std::promise<bool> left; ///< set when the message has been dealt with: true if it has left
};

} // namespace

struct HubSender::State {
    std::shared_ptr<HubTransport> transport; ///< used by the thread alone
    std::shared_ptr<HubClock> clock;
    std::atomic<bool> abandoned{false}; ///< what is under way is to be given up

    std::mutex mutex; ///< guards what follows; never held over a sending
    std::condition_variable changed;
    std::deque<Item> queue;
    bool lastTaken = false; ///< the last message is under way, or dealt with
    bool ending = false;    ///< the thread is to end
    bool finished = false;  ///< the thread has come to its end

    // The thread's own.
    HubMessage renewed;            ///< what is sent again
    std::chrono::seconds interval; ///< of the renewal
    std::optional<HubClock::TimePoint> due;

    void run();
    std::optional<Item> next();
    std::string deliver(const HubMessage& message);
};

/// Waits for the next message, be it a queued one or a renewal; nothing at the end.
std::optional<Item> HubSender::State::next() {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        if (ending)
            return std::nullopt;
        if (!queue.empty()) {
            Item item = std::move(queue.front());
            queue.pop_front();
            if (item.last) {
                lastTaken = true;
                abandoned = false;
            }
            return item;
        }
        if (!due) {
            changed.wait(lock);
        } else if (clock->now() >= *due) {
            Item item;
            item.message = renewed;
            item.renewal = interval;
            return item;
        } else {
            clock->waitUntil(changed, lock, *due);
        }
    }
}

std::string HubSender::State::deliver(const HubMessage& message) {
    if (message.multicast)
        return transport->multicast(message.group, message.port, message.ttl, message.document);
    return transport->post(message.hostAndPort, message.ssl, message.document, abandoned);
}

void HubSender::State::run() {
    while (std::optional<Item> item = next()) {
        const HubClock::TimePoint begin = clock->now();
        bool left = false;
        try {
            const std::string reason = deliver(item->message);
            left = reason.empty();
            if (!left)
                logFailure(item->message, reason);
        } catch (const std::exception&) {
            // Out of memory: one message is lost, the next renewal comes.
            left = false;
        }
        due.reset();
        if (item->renewal.count() > 0) {
            renewed = item->message;
            interval = item->renewal;
            due = begin + interval;
        }
        item->left.set_value(left);
    }
    const std::lock_guard<std::mutex> guard(mutex);
    finished = true;
    changed.notify_all();
}

HubSender::HubSender(std::shared_ptr<HubTransport> usedTransport,
                     std::shared_ptr<HubClock> usedClock)
    : state(std::make_shared<State>()) {
    state->transport = std::move(usedTransport);
    state->clock = std::move(usedClock);
}

HubSender::~HubSender() {
    end();
}

bool HubSender::ensureThread(const HubMessage& message) {
    if (thread.joinable())
        return true;
    try {
        thread = std::thread([held = state] {
            // Who looks at the process sees whether it is known to the hub.
            ::pthread_setname_np(::pthread_self(), "hub client");
            held->run();
        });
        return true;
    } catch (const std::system_error& error) {
        logFailure(message, error.what());
        return false;
    }
}

bool HubSender::send(HubMessage message, std::chrono::seconds renewal) {
    if (!ensureThread(message))
        return false;
    Item item;
    item.message = std::move(message);
    item.renewal = renewal;
    const std::lock_guard<std::mutex> guard(state->mutex);
    state->queue.push_back(std::move(item));
    state->changed.notify_all();
    return true;
}

bool HubSender::sendLast(const HubMessage& message, std::chrono::milliseconds limit) {
    if (!ensureThread(message))
        return false;
    Item item;
    item.message = message;
    item.last = true;
    std::future<bool> left = item.left.get_future();
    {
        const std::lock_guard<std::mutex> guard(state->mutex);
        state->lastTaken = false;
        state->queue.push_back(std::move(item));
        state->changed.notify_all();
    }
    if (left.wait_for(limit / 2) != std::future_status::ready) {
        const std::lock_guard<std::mutex> guard(state->mutex);
        if (!state->lastTaken)
            state->abandoned = true;
    }
    if (left.wait_for(limit - limit / 2) == std::future_status::ready)
        return left.get();
    logFailure(message, "the last message has not left in time");
    return false;
}

void HubSender::end() {
    if (!thread.joinable())
        return;
    state->abandoned = true;
    bool finished = false;
    {
        std::unique_lock<std::mutex> lock(state->mutex);
        state->ending = true;
        state->changed.notify_all();
        finished = state->changed.wait_for(lock, endLimit, [&] { return state->finished; });
    }
    if (finished)
        thread.join();
    else
        thread.detach();
}

} // namespace OstrandHub

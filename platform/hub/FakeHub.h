#pragma once

#include "platform/hub/HubClock.h"
#include "platform/hub/HubTransport.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// A hub without a network, for tests: keeps what arrives and answers as it is told.
class FakeHub : public OstrandHub::HubTransport {
public:
    /// A document and how it came.
    struct Delivery {
        std::string document;
        std::string address; ///< host and port, or group and port
        bool multicast = false;
        bool ssl = false;
        int ttl = 0;
    };

    std::string post(const std::string& hostAndPort, bool ssl, const std::string& document,
                     const std::atomic<bool>& abandoned) override {
        Delivery delivery;
        delivery.document = document;
        delivery.address = hostAndPort;
        delivery.ssl = ssl;
        return take(delivery, &abandoned);
    }

    std::string multicast(const Portico::InetAddress& group, std::uint16_t port, int ttl,
                          const std::string& document) override {
        Delivery delivery;
        delivery.document = document;
        delivery.address = group.toString() + ":" + std::to_string(port);
        delivery.multicast = true;
        delivery.ttl = ttl;
        return take(delivery, nullptr);
    }

    /// What the hub answers from here on: nothing for success, else a reason.
    void answer(const std::string& newReason) {
        const std::lock_guard<std::mutex> guard(mutex);
        reason = newReason;
    }

    /// Exchanges hang from here on; with `patient` false they end when they are abandoned, else
    /// only when the hub is released.
    void hang(bool patient) {
        const std::lock_guard<std::mutex> guard(mutex);
        hanging = true;
        ignoresAbandon = patient;
    }

    /// Ends the hanging of those that hang and of those to come.
    void release() {
        const std::lock_guard<std::mutex> guard(mutex);
        hanging = false;
        changed.notify_all();
    }

    /// Waits until `count` documents have arrived; all of them.
    std::vector<Delivery> waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(30), [&] { return taken.size() >= count; });
        return taken;
    }

    /// What has arrived so far.
    std::vector<Delivery> deliveries() { return waitFor(0); }

    /// Waits until no exchange is under way; false where that does not come about.
    bool waitForRest() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30), [&] { return underWay == 0; });
    }

private:
    std::string take(const Delivery& delivery, const std::atomic<bool>* abandoned) {
        std::unique_lock<std::mutex> lock(mutex);
        taken.push_back(delivery);
        ++underWay;
        changed.notify_all();
        while (hanging && (ignoresAbandon || !abandoned || !*abandoned))
            changed.wait_for(lock, std::chrono::milliseconds(1));
        --underWay;
        changed.notify_all();
        return reason;
    }

    std::mutex mutex; ///< guards what follows
    std::condition_variable changed;
    std::vector<Delivery> taken;
    std::string reason;
    bool hanging = false;
    bool ignoresAbandon = false;
    int underWay = 0;
};

/// A clock that a test sets.
class FakeClock : public OstrandHub::HubClock {
public:
    TimePoint now() override { return TimePoint(std::chrono::milliseconds(elapsed)); }

    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   TimePoint) override {
        ++looks;
        condition.wait_for(lock, std::chrono::milliseconds(1));
    }

    void advance(std::chrono::milliseconds time) { elapsed += time.count(); }

    /// Waits until somebody has looked at the clock twice since the call, in vain.
    void waitForLooks() {
        const int enough = looks + 2;
        while (looks < enough)
            std::this_thread::yield();
    }

private:
    std::atomic<std::int64_t> elapsed{1000000}; ///< ms
    std::atomic<int> looks{0};
};

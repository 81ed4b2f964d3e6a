#pragma once

#include "platform/portico/ThreadedWebServer.h"
#include "platform/portico/WebPage.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace Portico::Support {

/// A page that does what a test says.
class FunctionPage : public WebPage {
public:
    using Function = std::function<bool(const ProtocolHTTP::Request&, ProtocolHTTP::Reply&)>;

    explicit FunctionPage(Function body) : function(std::move(body)) {}

    using WebPage::create;
    bool create(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) override {
        return function(request, reply);
    }
    WebPage* clone() const override { return new FunctionPage(*this); }

private:
    Function function;
};

/// Where pages of a test wait until they are let go.
class Turnstile {
public:
    /// To be called by a page: waits for open().
    void pass() {
        std::unique_lock<std::mutex> lock(mutex);
        ++entered;
        ++waiting;
        most = waiting > most ? waiting : most;
        changed.notify_all();
        changed.wait(lock, [this] { return isOpen; });
        --waiting;
    }

    /// Waits until so many pages have come.
    void waitForEntered(int count) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this, count] { return entered >= count; });
    }

    void open() {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = true;
        changed.notify_all();
    }

    void close() {
        const std::lock_guard<std::mutex> lock(mutex);
        isOpen = false;
        entered = 0;
    }

    int countEntered() {
        const std::lock_guard<std::mutex> lock(mutex);
        return entered;
    }

    /// The most that waited at once.
    int countMost() {
        const std::lock_guard<std::mutex> lock(mutex);
        return most;
    }

private:
    std::mutex mutex; ///< guards what follows
    std::condition_variable changed;
    int entered = 0;
    int waiting = 0;
    int most = 0;
    bool isOpen = false;
};

/// A server on a free port with the pages that most tests need:
/// "/hello" says so, "/echo" repeats the request's body, "/block" waits at the turnstile.
class TestServer {
public:
    TestServer() {
        server.setRealm("Test");
        page("/hello", [](const auto&, auto& reply) {
            reply.body() = "hello";
            return true;
        });
        page("/echo", [](const auto& request, auto& reply) {
            reply.body() = request.body();
            return true;
        });
        page("/block", [this](const auto&, auto& reply) {
            turnstile.pass();
            reply.body() = "blocked";
            return true;
        });
    }
    ~TestServer() { turnstile.open(); }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    void page(const std::string& path, FunctionPage::Function function) {
        server.addPage(path, FunctionPage(std::move(function)));
    }

    /// Starts on a free port and returns it.
    unsigned short start(const std::string& certFile = "", const std::string& keyFile = "") {
        server.start("", 0, certFile, keyFile);
        return port();
    }

    unsigned short port() const { return server.socketAddress.getServicePort(); }

    Turnstile turnstile;
    ThreadedWebServer server;
};

} // namespace Portico::Support

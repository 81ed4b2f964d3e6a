// Serves pages of known sizes with the web server alone, for load generators.
//
// front_bench PORT THREADS [CERTIFICATE KEY]
//   /202    an empty reply with code 202
//   /1k     1 KiB
//   /1m     1 MiB, copied anew for each reply
//   /block  a page that takes 10 s
// Ends when its standard input does.

#include "platform/portico/ThreadedWebServer.h"
#include "platform/portico/WebPage.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>
#include <string>
#include <thread>
#include <utility>

namespace {

class FixedPage : public Portico::WebPage {
public:
    FixedPage(unsigned long status, std::size_t size) : code(status), content(size, 'x') {}

    using WebPage::create;
    bool create(const Portico::ProtocolHTTP::Request&,
                Portico::ProtocolHTTP::Reply& reply) override {
        reply.setCode(code);
        reply.body() = content;
        return true;
    }
    WebPage* clone() const override { return new FixedPage(*this); }

private:
    unsigned long code;
    std::string content;
};

class BlockingPage : public Portico::WebPage {
public:
    using WebPage::create;
    bool create(const Portico::ProtocolHTTP::Request&, Portico::ProtocolHTTP::Reply&) override {
        std::this_thread::sleep_for(std::chrono::seconds(10));
        return true;
    }
    WebPage* clone() const override { return new BlockingPage(*this); }
};

void serve(unsigned short port, std::uint32_t threads, const std::string& certificate,
           const std::string& key) {
    Portico::ThreadedWebServer server;
    server.setRealm("bench");
    server.addPage("/202", FixedPage(202, 0));
    server.addPage("/1k", FixedPage(200, 1024));
    server.addPage("/1m", FixedPage(200, std::size_t{1024} * 1024));
    server.addPage("/block", BlockingPage());
    server.threadParams.numThreads = threads;
    server.start("", port, certificate, key);
    std::cout << "serving on port " << server.socketAddress.getServicePort() << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    server.stop();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: front_bench PORT THREADS [CERTIFICATE KEY]" << std::endl;
        return 2;
    }
    try {
        serve(static_cast<unsigned short>(std::atoi(argv[1])),
              static_cast<std::uint32_t>(std::atoi(argv[2])), argc > 4 ? argv[3] : "",
              argc > 4 ? argv[4] : "");
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << std::endl;
        return 1;
    }
    return 0;
}

#pragma once

#include "platform/hub/OstrandHubServiceProvider.h"
#include "providers/legacy/JobProcThread.h"
#include "providers/legacy/LegacyJobState.h"
#include "providers/legacy/LegacyJobStore.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"
#include "tests/support/ProviderStand.h"

#include <memory>
#include <string>
#include <vector>

namespace OstrandService {

/// A legacy transcoder and a look at what it holds. Without other options it has no workers, so
/// that jobs stay in the state that a test gives them, and no providerId.
class TranscoderLegacyServiceProviderTest
    : public Support::ProviderStand<TranscoderLegacyServiceProvider> {
protected:
    TranscoderLegacyServiceProviderTest() {
        HostOptions::host().maddr = "239.255.77.77";
        HostOptions::host().mttl = 0;
        HostOptions::host().allowReconfig = true;
    }

    ~TranscoderLegacyServiceProviderTest() override { HostOptions::host().allowReconfig = false; }

    /// The options of this provider, alone.
    boost::program_options::options_description options() {
        boost::program_options::options_description desc;
        provider->addOptions(desc);
        return desc;
    }

    /// Goes through the host's calls from setupLogging() to addPages(), with these options behind
    /// those for the folders.
    bool init(const Words& words = {"-t", "0"}) {
        Words all{"--cache_path", folder.path("cache"), "--log_path", folder.path("log")};
        all.insert(all.end(), words.begin(), words.end());
        return initWith(all);
    }

    /// The same with these options alone.
    bool initWith(const Words& all) {
        provider->setupLogging();
        const auto desc = options();
        boost::program_options::variables_map vm;
        boost::program_options::store(
            boost::program_options::command_line_parser(all).options(desc).run(), vm);
        boost::program_options::notify(vm);
        Support::OutputCapture capture;
        const bool done = provider->init(vm);
        output = capture.output();
        errors = capture.errors();
        if (done)
            provider->addPages();
        return done;
    }

    /// What the main server answers.
    static Reply ask(const Request& request) {
        return Support::ServerPages::ask(HostOptions::host().webServer, request);
    }

    static Reply get(const std::string& uri) { return ask(Support::makeRequest("GET", uri)); }

    /// The text of a page, which every reader of any origin may have.
    static std::string page(const std::string& uri, const std::string& type) {
        const Reply reply = get(uri);
        EXPECT_EQ(reply.code, 200u) << uri;
        EXPECT_TRUE(Support::hasCors(reply)) << uri;
        EXPECT_EQ(Support::headerOf(reply, "Content-Type"), type) << uri;
        // The page with scripts tells which of them may run.
        const std::size_t more = reply.header().hasParam("Content-Security-Policy") ? 1 : 0;
        EXPECT_EQ(more, uri == "/statistics" ? 1u : 0u) << uri;
        EXPECT_EQ(reply.header().entries().size(), 3 + more) << uri;
        return reply.body();
    }

    /// What the result server answers.
    Reply fetch(const Request& request) const {
        return Support::ServerPages::ask(provider->deliveryServer, request);
    }

    Reply reconfigure(const std::string& json) {
        Support::OutputCapture capture;
        Reply reply = ask(Support::makeRequest("POST", "/reconfig", json));
        output = capture.output();
        errors = capture.errors();
        return reply;
    }

    /// Enters a job with this uid; returns its id.
    std::uint32_t submit(const std::string& uid, const std::string& more = "") {
        const std::string text =
            "{\"resource\":\"r\",\"uid\":\"" + uid + "\"" + (more.empty() ? "" : ",") + more + "}";
        JobRecord record(state().uploadPath.string());
        EXPECT_TRUE(record.parseJobText(text)) << text;
        return store().submitJob(record, text);
    }

    /// Takes a job through a state as a worker does.
    void setState(std::uint32_t id, LegacyJobState newState) {
        store().setJobState(store().getJobRecord(id), newState);
    }

    std::string log() const { return folder.read("log/messages.log"); }
    bool logged(const std::string& line) const {
        return log().find("Z " + line + "\n") != std::string::npos;
    }

    LegacyState& state() const { return provider->state; }
    LegacyJobStore& store() const { return *state().store; }
    std::size_t workers() const { return state().workerThreads.size(); }
    std::uint16_t deliveryPort() const { return provider->deliveryPort; }
    std::string baseCachePath() const { return provider->cachePath; }
    Portico::ThreadedWebServer& deliveryServer() const { return provider->deliveryServer; }
    void registerWithHub() const { provider->registerWithHub(); }
    void clearCache() const { provider->clearCache(); }

    static std::unique_ptr<Portico::WebPage> makeDeliveryPage(const std::string& prefix,
                                                              const std::string& root);
};

} // namespace OstrandService

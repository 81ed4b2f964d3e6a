#include "platform/hub/OstrandHubServiceProvider.h"

#include "platform/config/Ascii.h"
#include "platform/hub/AtomicFile.h"
#include "platform/hub/HubClock.h"
#include "platform/hub/HubFiles.h"
#include "platform/hub/HubSender.h"
#include "platform/hub/HubTransport.h"
#include "platform/hub/Json.h"
#include "platform/hub/Uuid.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::chrono::milliseconds deregistrationLimit{2000};

constexpr std::size_t shortLength = 8; ///< characters of the short identifier

/// The identifier that the file holds, in lower case; empty where it holds no UUID.
std::string storedIdentifier(const std::string& path) {
    std::string text;
    OstrandHub::getFileContents(path.c_str(), text);
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    text.erase(last == std::string::npos ? 0 : last + 1);
    return OstrandHub::isUuid(text) ? Config::lowerCase(text) : "";
}

/// A new identifier, kept in the file where that can be written. Jobs lie in a folder of its name,
/// so whoever finds none of yesterday's has to learn why.
std::string makeIdentifier(const std::string& cacheRoot, const std::string& path) {
    if (::access(path.c_str(), F_OK) == 0)
        std::fprintf(stderr, "service id made anew: no readable one in %s\n", path.c_str());
    std::string identifier = OstrandHub::randomUuid();
    // A root that is no folder is found, and told, by whoever makes the folders in it.
    if (!OstrandHub::writeFileAtomically(path, identifier + "\n") &&
        ::access((cacheRoot + "/").c_str(), F_OK) == 0)
        std::fprintf(stderr, "service id not kept: cannot write %s\n", path.c_str());
    return identifier;
}

/// The identifier of the service whose cache root this is; the file always holds the full one.
std::string obtainIdentifier(const std::string& cacheRoot, bool shortId) {
    const std::string path = cacheRoot + "/.serviceid";
    std::string identifier = storedIdentifier(path);
    if (identifier.empty())
        identifier = makeIdentifier(cacheRoot, path);
    return shortId ? identifier.substr(0, shortLength) : identifier;
}

/// The identifier under which a registration document announces the service; `fallback` where it
/// names none. Read by lines of text: a document whose texts hold quotes is no JSON, and its lists
/// may hold the key's name.
std::string announcedIdentifier(const std::string& document, const std::string& fallback) {
    const std::string key = "\"ProviderId\"";
    std::istringstream lines(document);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t at = line.find_first_not_of(' ');
        if (at == std::string::npos || line.compare(at, key.size(), key) != 0)
            continue;
        const std::size_t colon = line.find_first_not_of(' ', at + key.size());
        if (colon == std::string::npos || line[colon] != ':')
            continue;
        const std::size_t begin = line.find('"', colon);
        const std::size_t end = line.rfind('"');
        if (begin < end)
            return line.substr(begin + 1, end - begin - 1);
    }
    return fallback;
}

} // namespace

OstrandHubServiceProvider::OstrandHubServiceProvider(const std::string& cacheRoot,
                                                     const std::string& hubGroup, bool shortId)
    : OstrandHubServiceProvider(cacheRoot, hubGroup, shortId, OstrandHub::makeNetworkTransport(),
                                OstrandHub::makeSteadyClock()) {}

OstrandHubServiceProvider::OstrandHubServiceProvider(
    const std::string& cacheRoot, const std::string& hubGroup, bool shortId,
    std::shared_ptr<OstrandHub::HubTransport> usedTransport,
    std::shared_ptr<OstrandHub::HubClock> usedClock)
    : group(hubGroup), identifier(obtainIdentifier(cacheRoot, shortId)),
      transport(std::move(usedTransport)), clock(std::move(usedClock)) {}

OstrandHubServiceProvider::~OstrandHubServiceProvider() {
    close();
}

const std::string OstrandHubServiceProvider::getUUID() const {
    return identifier;
}

void OstrandHubServiceProvider::setRegIPAddress(const std::string& hostAndPort) {
    regAddress = hostAndPort;
}

bool OstrandHubServiceProvider::open() {
    return true;
}

OstrandHub::HubMessage OstrandHubServiceProvider::message(const std::string& document,
                                                          bool ssl) const {
    OstrandHub::HubMessage message;
    message.document = document;
    message.multicast = regByMulticast || regAddress.empty();
    message.hostAndPort = regAddress;
    message.ssl = ssl;
    message.group = getAddress();
    message.port = mcastPort;
    message.ttl = mcastTtl;
    return message;
}

bool OstrandHubServiceProvider::addServiceProvider(const std::string& document, bool ssl) {
    if (!sender)
        sender = std::make_unique<OstrandHub::HubSender>(transport, clock);
    announced = announcedIdentifier(document, identifier);
    registered = sender->send(message(document, ssl), std::chrono::seconds(refreshInterval));
    return registered;
}

bool OstrandHubServiceProvider::removeServiceProvider(bool ssl) {
    if (!registered)
        return true;
    registered = false;
    const std::string document = R"({"Command":"removeServiceProvider","Group":")" +
                                 OstrandHub::escapeJson(group) + R"(","ProviderId":")" +
                                 OstrandHub::escapeJson(announced) + R"("})";
    return sender->sendLast(message(document, ssl), deregistrationLimit);
}

bool OstrandHubServiceProvider::close() {
    registered = false;
    sender.reset();
    return true;
}

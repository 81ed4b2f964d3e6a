#pragma once

#include "platform/portico/LogLimiter.h"
#include "platform/portico/MessageHeader.h"
#include "platform/portico/PageGate.h"
#include "platform/portico/PageTable.h"
#include "platform/portico/ThreadedWebServer.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace Portico {

/// What all connections of a server share. Constant while it runs, but for the parts that say
/// otherwise by their types.
struct ServerState {
    ServerState(const PageTable& table, const std::string& name, const ThreadParams& params,
                std::uint64_t largestBody, int logSize, LogLimiter::Sink sink)
        : pages(table), realm(name), idleMillis(std::int64_t{params.idleSeconds} * 1000),
          clientMillis(std::int64_t{params.clientSeconds} * 1000), bodyLimit(largestBody),
          log(logSize, std::move(sink)), gate(params.numThreads) {}

    /// What HTML replies carry besides, or null where that is nothing.
    const MessageHeader* addedToHtml() const {
        return htmlHeader.entries().empty() ? nullptr : &htmlHeader;
    }

    const PageTable& pages;
    const std::string realm;
    const std::int64_t idleMillis;   ///< until a connection between two requests is closed
    const std::int64_t clientMillis; ///< that a head, a body or a reply may stand still
    const std::uint64_t bodyLimit;   ///< bytes
    bool traceRequests = false;
    bool traceReplies = false;
    MessageHeader htmlHeader; ///< see ThreadedWebServer

    LogLimiter log;
    PageGate gate;
    std::atomic<bool> stopping{false};
};

} // namespace Portico

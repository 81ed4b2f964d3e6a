#pragma once

namespace Portico {

/// The connection that a request came in on, as a page sees it: something to tell apart, with
/// nothing to call. Valid while the page runs.
class WebClient {
protected:
    WebClient() = default;
    ~WebClient() = default;
};

} // namespace Portico

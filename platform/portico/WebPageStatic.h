#pragma once

#include "platform/portico/WebPage.h"

#include <string>

namespace Portico {

/// A page that answers every request, whatever its method, with the same bytes.
class WebPageStatic : public WebPage {
public:
    /// Copies `size` bytes at `data`, zero bytes included.
    WebPageStatic(const char* data, unsigned long size, const std::string& type,
                  unsigned long status);

    using WebPage::create;
    bool create(const ProtocolHTTP::Request& request, ProtocolHTTP::Reply& reply) override;
    WebPage* clone() const override;

private:
    std::string content;
    std::string mimeType;
    unsigned long code;
};

} // namespace Portico

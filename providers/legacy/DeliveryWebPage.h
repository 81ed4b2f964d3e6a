#pragma once

#include "platform/portico/WebPage.h"
#include "providers/legacy/TranscoderLegacyServiceProvider.h"

#include <string>

namespace OstrandService {

/// The page of the legacy result server: a path is a file below the cache folder, and any POST is
/// an upload. It answers 202 while ".partial" lies beside the file. Reads only the disk.
class TranscoderLegacyServiceProvider::DeliveryWebPage : public Portico::WebPage {
public:
    /// `uriPrefix` is cut off the path of the request, `folder` is put in front of the rest.
    DeliveryWebPage(std::string uriPrefix, std::string folder);

    using WebPage::create;
    bool create(const Portico::ProtocolHTTP::Request& request,
                Portico::ProtocolHTTP::Reply& reply) override;
    Portico::WebPage* clone() const override;

private:
    void deliver(const Portico::ProtocolHTTP::Request& request,
                 Portico::ProtocolHTTP::Reply& reply) const;
    static void upload(const Portico::ProtocolHTTP::Request& request,
                       Portico::ProtocolHTTP::Reply& reply);

    std::string prefix;
    std::string root;
};

} // namespace OstrandService

#pragma once

#include "platform/portico/WebPage.h"
#include "providers/transcoder/TranscoderServiceProvider.h"

#include <string>

namespace OstrandService {

/// The page of the result server: a path is a file below the cache root.
///
/// It answers 202 while the job of the file is unfinished, so that a client that polls sees neither
/// a 404 nor half a file, and reads only the disk.
class TranscoderServiceProvider::DeliveryWebPage : public Portico::WebPage {
public:
    /// `uriPrefix` is cut off the path of the request, `root` is put in front of the rest.
    DeliveryWebPage(std::string uriPrefix, std::string root);

    using WebPage::create;
    bool create(const Portico::ProtocolHTTP::Request& request,
                Portico::ProtocolHTTP::Reply& reply) override;
    Portico::WebPage* clone() const override;

private:
    std::string prefix;
    std::string rootPath;
};

} // namespace OstrandService

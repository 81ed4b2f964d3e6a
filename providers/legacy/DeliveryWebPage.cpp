#include "providers/legacy/DeliveryWebPage.h"

#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/ResultFile.h"
#include "platform/hub/MessageLog.h"
#include "platform/portico/ProtocolHTTP.h"
#include "providers/legacy/LegacyState.h"
#include "providers/legacy/MimeExtensions.h"

#include <boost/filesystem.hpp>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace OstrandService {

namespace {

/// A new name for an upload: hexadecimal digits at random and the extension. Where the system gives
/// no random numbers the name is empty.
std::string uploadName(const std::string& extension) {
    boost::system::error_code error;
    const boost::filesystem::path name =
        boost::filesystem::unique_path("%%%%-%%%%-%%%%-%%%%." + extension, error);
    return error ? std::string() : name.string();
}

/// Writes the file whole or not at all: a model that was cut short would pass for a smaller one.
bool store(const std::string& path, const std::string& content) {
    std::FILE* const file = std::fopen(path.c_str(), "wbe");
    if (!file)
        return false;
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (std::fclose(file) == 0 && written)
        return true;
    ::unlink(path.c_str());
    return false;
}

} // namespace

TranscoderLegacyServiceProvider::DeliveryWebPage::DeliveryWebPage(std::string uriPrefix,
                                                                  std::string folder)
    : prefix(std::move(uriPrefix)), root(std::move(folder)) {}

bool TranscoderLegacyServiceProvider::DeliveryWebPage::create(
    const Portico::ProtocolHTTP::Request& request, Portico::ProtocolHTTP::Reply& reply) {
    const bool isUpload = request.method == "POST";
    // Other methods get the reply as the server made it, an empty 200 without CORS headers.
    if (!isUpload && request.method != "GET" && request.method != "HEAD")
        return true;
    addCorsHeaders(request, reply);
    if (isUpload)
        upload(request, reply);
    else
        deliver(request, reply);
    return true;
}

void TranscoderLegacyServiceProvider::DeliveryWebPage::deliver(
    const Portico::ProtocolHTTP::Request& request, Portico::ProtocolHTTP::Reply& reply) const {
    reply.setCode(404);
    if (request.uri.compare(0, prefix.size(), prefix) != 0)
        return;
    const std::string file = root + request.uri.substr(prefix.size());
    const boost::filesystem::path folder = boost::filesystem::path(file).parent_path();
    // Only the file's own folder: what lies in a job's result folders is served at once. A marker
    // that can't be looked for counts as none: then the file decides.
    if (JobFolder::exists((folder / ".partial").string())) {
        reply.setCode(202);
        return;
    }
    ResultFile::answer(request.method == "GET", file, reply);
}

// The path of the request does not matter. An upload that can't be stored is answered like any
// other: its name just leads to no file.
void TranscoderLegacyServiceProvider::DeliveryWebPage::upload(
    const Portico::ProtocolHTTP::Request& request, Portico::ProtocolHTTP::Reply& reply) {
    const std::string extension = extensionForMime(request.header().getParam("Content-Type", ""));
    if (extension.empty()) {
        reply.setCode(404);
        return;
    }
    const LegacyState& state = *LegacyState::current;
    const std::string name = uploadName(extension);
    if (name.empty() || !store((state.uploadPath / name).string(), request.body()))
        MessageLog::the()->log("UPLOAD: failed, could not be written: " + name);
    reply.body() = name + "@" + state.serviceId();
    reply.setCode(200);
}

Portico::WebPage* TranscoderLegacyServiceProvider::DeliveryWebPage::clone() const {
    return new DeliveryWebPage(*this);
}

} // namespace OstrandService

#include "providers/transcoder/DeliveryWebPage.h"

#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/ResultFile.h"
#include "platform/portico/ProtocolHTTP.h"

#include <boost/filesystem/path.hpp>
#include <utility>

namespace OstrandService {

namespace {

/// True while the job that a file belongs to is unfinished: its marker lies beside the file or one
/// folder up, where a job's result folders are. Deeper files are served as soon as they are there.
bool isUnfinished(const std::string& path) {
    const boost::filesystem::path folder = boost::filesystem::path(path).parent_path();
    return JobFolder::exists((folder / ".partial").native()) ||
           JobFolder::exists((folder.parent_path() / ".partial").native());
}

} // namespace

TranscoderServiceProvider::DeliveryWebPage::DeliveryWebPage(std::string uriPrefix, std::string root)
    : prefix(std::move(uriPrefix)), rootPath(std::move(root)) {}

bool TranscoderServiceProvider::DeliveryWebPage::create(
    const Portico::ProtocolHTTP::Request& request, Portico::ProtocolHTTP::Reply& reply) {
    const bool isGet = request.method == "GET";
    // Other methods get the reply as the server made it, an empty 200 without CORS headers.
    if (!isGet && request.method != "HEAD")
        return true;
    addCorsHeaders(request, reply);
    if (request.uri.compare(0, prefix.size(), prefix) != 0) {
        reply.setCode(404);
        return true;
    }
    const std::string path = rootPath + request.uri.substr(prefix.size());
    if (isUnfinished(path)) {
        reply.setCode(202);
        return true;
    }
    if (JobFolder::isFolder(path)) {
        reply.setCode(403);
        return true;
    }
    ResultFile::answer(isGet, path, reply);
    return true;
}

Portico::WebPage* TranscoderServiceProvider::DeliveryWebPage::clone() const {
    return new DeliveryWebPage(*this);
}

} // namespace OstrandService

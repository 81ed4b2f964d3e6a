#include "providers/transcoder/DeliveryWebPage.h"

#include "framework/Cors.h"
#include "framework/JobFolder.h"
#include "framework/ResultFile.h"
#include "platform/portico/ProtocolHTTP.h"

#include <string_view>
#include <utility>

namespace OstrandService {

namespace {

/// The folder of a path, with its slash; empty for a bare name.
std::string_view folderOf(std::string_view path) {
    const std::string_view::size_type slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash + 1);
}

/// The folder above one that was found by folderOf().
std::string_view parentOf(std::string_view folder) {
    const std::string_view::size_type last = folder.find_last_not_of('/');
    return last == std::string_view::npos ? std::string_view()
                                          : folderOf(folder.substr(0, last + 1));
}

bool isMarked(std::string_view folder) {
    static constexpr std::string_view marker = ".partial";
    std::string path;
    path.reserve(folder.size() + marker.size());
    path.append(folder).append(marker);
    return JobFolder::mayExist(path);
}

/// True while the job that a file belongs to is unfinished: its marker lies beside the file or one
/// folder up, where a job's result folders are. Deeper files are served as soon as they are there.
bool isUnfinished(const std::string& path) {
    const std::string_view folder = folderOf(path);
    return isMarked(folder) || isMarked(parentOf(folder));
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
    std::string path;
    path.reserve(rootPath.size() + request.uri.size() - prefix.size());
    path.append(rootPath).append(request.uri, prefix.size());
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

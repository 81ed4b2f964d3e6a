#include "providers/legacy/MimeExtensions.h"

#include <map>

namespace OstrandService {

std::string extensionForMime(const std::string& mediaType) {
    static const auto* const mimeExtensions =
        new std::map<std::string, std::string>{{"text/plain", "txt"},
                                               {"image/png", "png"},
                                               {"model/x3d+xml", "x3d"},
                                               {"model/x3d+vrml", "x3dv"}};
    const auto found = mimeExtensions->find(mediaType);
    return found == mimeExtensions->end() ? std::string() : found->second;
}

} // namespace OstrandService

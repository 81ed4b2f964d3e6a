#include "platform/hub/UploadName.h"

#include "platform/hub/Uuid.h"

#include <cstddef>

namespace OstrandService {

bool isUpload(const std::string& resource) {
    const std::size_t at = resource.rfind('@');
    return at != std::string::npos && OstrandHub::isUuid(resource.substr(at + 1));
}

std::string uploadFileName(const std::string& resource) {
    if (!isUpload(resource))
        return "";
    const std::string path = resource.substr(0, resource.rfind('@'));
    const std::size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return name == "." || name == ".." ? "" : name;
}

} // namespace OstrandService

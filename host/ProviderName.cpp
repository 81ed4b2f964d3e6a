#include "host/ProviderName.h"

#include <boost/filesystem/path.hpp>

namespace OstrandService {

namespace {

void cut(std::string& text, std::string::size_type at, const std::string& what) {
    if (at != std::string::npos)
        text.erase(at, what.size());
}

} // namespace

std::string providerNameOf(const std::string& program) {
    const std::string ending = ".exe";
    const std::string family = "OstrandService";
    std::string name = boost::filesystem::path(program).filename().string();
    cut(name, name.rfind(ending), ending);
    cut(name, name.find(family), family);
    return name.empty() ? "TranscoderService" : name;
}

} // namespace OstrandService

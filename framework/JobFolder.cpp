#include "framework/JobFolder.h"

#include "platform/hub/AtomicFile.h"
#include "platform/hub/HubFiles.h"

#include <boost/filesystem.hpp>

namespace OstrandService {

void JobFolder::create(const std::string& path, const std::string& meta) {
    boost::system::error_code error;
    boost::filesystem::create_directory(path, error);
    if (error)
        return;
    OstrandHub::writeFileAtomically(path + "/.meta", meta);
}

std::string JobFolder::readText(const std::string& path) {
    std::string text;
    OstrandHub::getFileContents(path.c_str(), text);
    return text;
}

bool JobFolder::exists(const std::string& path) {
    boost::system::error_code error;
    return boost::filesystem::exists(path, error) && !error;
}

bool JobFolder::isFolder(const std::string& path) {
    boost::system::error_code error;
    return boost::filesystem::is_directory(path, error) && !error;
}

} // namespace OstrandService

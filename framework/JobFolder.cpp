#include "framework/JobFolder.h"

#include "platform/hub/AtomicFile.h"
#include "platform/hub/HubFiles.h"

#include <boost/filesystem.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandService {

void JobFolder::create(const std::string& path, const std::string& meta) {
    boost::system::error_code error;
    const bool made = boost::filesystem::create_directory(path, error);
    if (error)
        return;
    // On a full disk the folder goes again: the job then fails when its tool is started there, and
    // does not end well only to be unknown after a restart.
    if (!OstrandHub::writeFileAtomically(path + "/.meta", meta) && made)
        boost::filesystem::remove(path, error);
}

void JobFolder::markPartial(const std::string& path) {
    if (std::FILE* const file = std::fopen((path + "/.partial").c_str(), "we"))
        std::fclose(file);
}

void JobFolder::clearPartial(const std::string& path) {
    ::unlink((path + "/.partial").c_str());
}

void JobFolder::writeJobId(const std::string& path, std::uint32_t id, const std::string& service) {
    std::ofstream(path + "/jobId", std::ios::binary | std::ios::trunc)
        << std::to_string(id) << "@" << service;
}

void JobFolder::writeCookies(const std::string& path, const Cookies& cookies) {
    const std::string file = path + "/.cookie";
    // Made with the rights it is to have, before anything is in it.
    const int made = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (made < 0)
        return;
    ::close(made);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    for (const auto& cookie : cookies)
        out << cookie.first << "\n" << cookie.second << "\n";
}

void JobFolder::removeAll(const std::string& cachePath) {
    namespace fs = boost::filesystem;
    std::vector<fs::path> folders;
    for (const fs::directory_entry& entry : fs::directory_iterator(cachePath)) {
        if (isFolder(entry.path().string()))
            folders.push_back(entry.path());
    }
    for (const fs::path& folder : folders) {
        const std::string name = folder.filename().string();
        std::fprintf(stderr, "clear cache %s | %s\n", folder.c_str(), name.c_str());
        std::int32_t number = 0;
        if (!boost::conversion::try_lexical_convert(name, number) ||
            !exists((folder / ".meta").string()))
            continue;
        std::fprintf(stderr, "really delete it %s\n", folder.c_str());
        fs::remove_all(folder);
    }
}

std::string JobFolder::readText(const std::string& path) {
    std::string text;
    OstrandHub::getFileContents(path.c_str(), text);
    return text;
}

bool JobFolder::exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

bool JobFolder::isFolder(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace OstrandService

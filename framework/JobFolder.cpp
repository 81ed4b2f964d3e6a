#include "framework/JobFolder.h"

#include "platform/hub/AtomicFile.h"
#include "platform/hub/HubFiles.h"
#include "platform/kestrel/CrashPoint.h"

#include <boost/filesystem.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandService {

namespace {

constexpr mode_t everybody = 0644; ///< rights of a new file: all may read it
constexpr mode_t ownerOnly = 0600;

/// Writes `text` into a file, which is made if missing; `how` is O_TRUNC or O_APPEND. What is no
/// regular file is left alone, and never waited for: a tool may leave a pipe of any name behind.
void rewrite(const std::string& path, const std::string& text, int how, mode_t rights) {
    const int file =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | how, rights);
    if (file < 0)
        return;
    struct stat status {};
    const bool regular = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    for (std::size_t done = 0; regular && done < text.size();) {
        const ssize_t count = ::write(file, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR)
            break;
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    ::close(file);
}

/// True if an error of a call on a path tells that there is nothing that could be reached.
bool isAbsence(int error) {
    return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP ||
           error == EACCES;
}

} // namespace

void JobFolder::create(const std::string& path, const std::string& meta) {
    Kestrel::crashPoint("before the folder");
    boost::system::error_code error;
    const bool made = boost::filesystem::create_directory(path, error);
    if (error)
        return;
    Kestrel::crashPoint("folder made");
    // A folder that stood in the way may hold the state of a job that nobody knows any more.
    if (!made)
        ::unlink((path + "/.status").c_str());
    if (OstrandHub::writeFileAtomically(path + "/.meta", meta))
        return;
    // On a full disk the folder goes again: the job then fails when its tool is started there, and
    // does not end well only to be unknown after a restart.
    if (made)
        boost::filesystem::remove(path, error);
    else
        ::unlink((path + "/.meta").c_str());
}

bool JobFolder::markPartial(const std::string& path) {
    const std::string marker = path + "/.partial";
    rewrite(marker, "", O_TRUNC, everybody);
    Kestrel::crashPoint("marked");
    return exists(marker);
}

bool JobFolder::clearPartial(const std::string& path) {
    Kestrel::crashPoint("before the mark goes");
    const std::string marker = path + "/.partial";
    // An empty folder of the name marks as well as a file, and goes as well.
    const bool gone = ::unlink(marker.c_str()) == 0 ||
                      (errno == EISDIR && ::rmdir(marker.c_str()) == 0) || !mayExist(marker);
    Kestrel::crashPoint("mark gone");
    return gone;
}

void JobFolder::writeJobId(const std::string& path, std::uint32_t id, const std::string& service) {
    rewrite(path + "/jobId", std::to_string(id) + "@" + service, O_TRUNC, everybody);
    Kestrel::crashPoint("number written");
}

void JobFolder::writeCookies(const std::string& path, const Cookies& cookies) {
    std::string text;
    for (const auto& cookie : cookies)
        text += cookie.first + "\n" + cookie.second + "\n";
    rewrite(path + "/.cookie", text, O_TRUNC, ownerOnly);
}

void JobFolder::appendConsole(const std::string& path, const std::string& text) {
    rewrite(path, text, O_APPEND, everybody);
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

bool JobFolder::mayExist(const std::string& path) {
    return exists(path) || !isAbsence(errno);
}

bool JobFolder::isFolder(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace OstrandService

#include "platform/hub/AtomicFile.h"

#include "platform/kestrel/CrashPoint.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandHub {

namespace {

/// The folder of `path` with its slash; empty for a bare name.
std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

/// Makes a new file in `folder` and returns its descriptor and, in `name`, its path. The name
/// starts with a dot and does not hold the target's, which may be as long as names can be.
int createBeside(const std::string& folder, std::string& name) {
    static std::atomic<std::uint64_t> counter{0};
    for (;;) {
        name = folder + ".new-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
        const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        // A file of that name was left behind by a process that ended in the middle.
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
}

bool writeAll(int fd, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(fd, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0)
            written += static_cast<std::size_t>(count);
    }
    return true;
}

/// Puts the file `from` in the place of `to`. A file that is there already changes places with it
/// and is then removed: at a rename onto it some file systems write the new file's data out at
/// once, which costs more than all else here. Where the file system can't exchange, it is that
/// rename.
bool replace(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_EXCHANGE) != 0)
        return std::rename(from.c_str(), to.c_str()) == 0;
    Kestrel::crashPoint("file exchanged");
    if (::unlink(from.c_str()) == 0)
        return true;
    // A folder, which a rename would not have replaced either, goes back to its place.
    ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_EXCHANGE);
    return false;
}

} // namespace

bool writeFileAtomically(const std::string& path, const std::string& text) {
    std::string name;
    const int fd = createBeside(folderOf(path), name);
    if (fd < 0)
        return false;
    Kestrel::crashPoint("file made");
    const bool written = writeAll(fd, text);
    const bool closed = ::close(fd) == 0;
    Kestrel::crashPoint("file written");
    if (written && closed && replace(name, path)) {
        Kestrel::crashPoint("file in place");
        return true;
    }
    ::unlink(name.c_str());
    return false;
}

bool overwriteFile(const std::string& path, const std::string& text) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    struct stat status {};
    const bool fits = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
                      static_cast<std::size_t>(status.st_size) == text.size();
    Kestrel::crashPoint("before overwriting");
    const bool written =
        fits && ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
    ::close(fd);
    Kestrel::crashPoint("overwritten");
    return written;
}

} // namespace OstrandHub

#include "platform/hub/HubFiles.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandHub {

namespace {

constexpr std::size_t blockSize = 65536;

/// Reads from `fd` to its end, whatever its size was said to be: some of the kernel's files have
/// none.
bool readAll(int fd, std::size_t expected, std::string& out) {
    out.reserve(expected + 1);
    for (;;) {
        const std::size_t filled = out.size();
        const std::size_t left = expected > filled ? expected - filled : 0;
        // One byte more than expected, so that the end is mostly met without a second allocation.
        out.resize(filled + (left > 0 ? left + 1 : blockSize));
        const ssize_t got = ::read(fd, &out[filled], out.size() - filled);
        const int error = errno;
        out.resize(filled + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got == 0)
            return true;
        if (got < 0 && error != EINTR)
            return false;
    }
}

bool readRegularFile(int fd, std::string& out) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    return readAll(fd, static_cast<std::size_t>(status.st_size), out);
}

/// The variable's value; empty where it is not set.
std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

} // namespace

bool getFileContents(const char* path, std::string& out) {
    out.clear();
    if (!path)
        return false;
    // Without blocking: opening a FIFO would otherwise wait for somebody who writes to it.
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return false;
    bool read = false;
    try {
        read = readRegularFile(fd, out);
    } catch (...) {
        read = false; // larger than the memory
    }
    ::close(fd);
    if (!read)
        out.clear();
    return read;
}

std::string getHubDataPath() {
    std::string own = variable("OSTRANDHUB_DATA");
    if (!own.empty())
        return own;
    const std::string dataHome = variable("XDG_DATA_HOME");
    if (!dataHome.empty())
        return dataHome + "/ostrandhub";
    const std::string home = variable("HOME");
    if (!home.empty())
        return home + "/.local/share/ostrandhub";
    return "/var/lib/ostrandhub";
}

} // namespace OstrandHub

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

/// Reads from `fd` as many bytes as it held when it was opened; what a tool appends meanwhile is
/// not followed, for that may never end. Of a file without a size, as the kernel's own are, one
/// block is read.
bool readAll(int fd, std::size_t expected, std::string& out) {
    out.resize(expected > 0 ? expected : blockSize);
    std::size_t filled = 0;
    while (filled < out.size()) {
        const ssize_t got = ::read(fd, &out[filled], out.size() - filled);
        if (got < 0 && errno != EINTR)
            return false;
        if (got == 0)
            break;
        filled += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    out.resize(filled);
    return true;
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

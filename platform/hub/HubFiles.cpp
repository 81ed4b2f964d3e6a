#include "platform/hub/HubFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandHub {

namespace {

constexpr std::size_t blockSize = 65536;

/// From this size on a string lies in pages of its own.
constexpr std::size_t largeSize = 4 << 20;

/// Lets the memory that `out` has reserved come in large pages where the system has them: the first
/// touch of each small one costs more than the copying of what goes into it.
void preferLargePages(std::string& out) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t before = (page - reinterpret_cast<std::uintptr_t>(out.data()) % page) % page;
    const std::size_t whole = (out.capacity() - before) / page * page;
    // A wish: where it is not granted the small pages do.
    (void)::madvise(out.data() + before, whole, MADV_HUGEPAGE);
}

/// Reads at most `wanted` bytes into `out`. Goes through a block that the processor keeps at hand:
/// a string of that size would first have to be filled with zeros.
bool appendBlocks(int fd, std::size_t wanted, std::string& out) {
    std::array<char, blockSize> block; // NOLINT(cppcoreguidelines-pro-type-member-init)
    while (out.size() < wanted) {
        const ssize_t got = ::read(fd, block.data(), std::min(block.size(), wanted - out.size()));
        if (got < 0 && errno != EINTR)
            return false;
        if (got == 0)
            break;
        out.append(block.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    return true;
}

/// Reads from `fd` as many bytes as it held when it was opened; what a tool appends meanwhile is
/// not followed, for that may never end. Of a file without a size, as the kernel's own are, one
/// block is read.
bool readAll(int fd, std::size_t expected, std::string& out) {
    const std::size_t wanted = expected > 0 ? expected : blockSize;
    out.reserve(expected);
    if (expected >= largeSize)
        preferLargePages(out);
    return appendBlocks(fd, wanted, out);
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

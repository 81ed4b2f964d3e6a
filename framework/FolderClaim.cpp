#include "framework/FolderClaim.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace OstrandService {

FolderClaim::~FolderClaim() {
    release();
}

bool FolderClaim::take(const std::string& path) {
    release();
    folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0 || ::flock(folder, LOCK_EX | LOCK_NB) == 0)
        return true;
    // Some file systems know no locks.
    const bool isTaken = errno == EWOULDBLOCK;
    release();
    return !isTaken;
}

void FolderClaim::release() {
    if (folder >= 0)
        ::close(folder);
    folder = -1;
}

} // namespace OstrandService

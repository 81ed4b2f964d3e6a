// Folders: made, walked, their names changed and looked up.

#include "tests/faults/FaultTable.h"
#include "tests/faults/Marks.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Faults;

namespace {

Kind makeKind("mkdir");
Kind renameKind("rename");
Kind unlinkKind("unlink");
Kind lookKind("look");
Kind walkKind("readdir");

Real<int(const char*, mode_t)> realMkdir("mkdir");
Real<int(const char*, const char*)> realRename("rename");
Real<int(int, const char*, int, const char*, unsigned)> realRenameAt2("renameat2");
Real<int(const char*)> realUnlink("unlink");
Real<int(int, const char*, int)> realUnlinkAt("unlinkat");
Real<int(const char*, int)> realAccess("access");
Real<int(const char*, struct stat*)> realStat("stat");
Real<int(int, const char*, int, unsigned, struct statx*)> realStatx("statx");
Real<dirent64*(DIR*)> realReaddir("readdir64");
Real<int(DIR*)> realClosedir("closedir");

} // namespace

OSTRAND_CALL int mkdir(const char* path, mode_t rights) noexcept {
    return fails(makeKind, placeOf(path)) ? -1 : realMkdir.get()(path, rights);
}

OSTRAND_CALL int rename(const char* from, const char* to) noexcept {
    return fails(renameKind, placeOf(to)) ? -1 : realRename.get()(from, to);
}

OSTRAND_CALL int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                           unsigned flags) noexcept {
    if (fails(renameKind, placeOf(toFolder, to)))
        return -1;
    return realRenameAt2.get()(fromFolder, from, toFolder, to, flags);
}

OSTRAND_CALL int unlink(const char* path) noexcept {
    return fails(unlinkKind, placeOf(path)) ? -1 : realUnlink.get()(path);
}

OSTRAND_CALL int unlinkat(int folder, const char* path, int flags) noexcept {
    if (fails(unlinkKind, placeOf(folder, path)))
        return -1;
    return realUnlinkAt.get()(folder, path, flags);
}

OSTRAND_CALL int access(const char* path, int mode) noexcept {
    return fails(lookKind, placeOf(path)) ? -1 : realAccess.get()(path, mode);
}

OSTRAND_CALL int stat(const char* path, struct stat* status) noexcept {
    return fails(lookKind, placeOf(path)) ? -1 : realStat.get()(path, status);
}

OSTRAND_CALL int statx(int folder, const char* path, int flags, unsigned mask,
                       struct statx* status) noexcept {
    if (fails(lookKind, placeOf(folder, path)))
        return -1;
    return realStatx.get()(folder, path, flags, mask, status);
}

OSTRAND_CALL dirent64* readdir64(DIR* folder) {
    return fails(walkKind, placeOf(dirfd(folder))) ? nullptr : realReaddir.get()(folder);
}

OSTRAND_CALL int closedir(DIR* folder) {
    mark(dirfd(folder), nowhere);
    return realClosedir.get()(folder);
}

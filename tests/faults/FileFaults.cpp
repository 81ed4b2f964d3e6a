// Files: opened, read, written, closed. A short reading or writing has half of what was asked for.

#include "tests/faults/FaultTable.h"
#include "tests/faults/Marks.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

using namespace Faults;

namespace {

Kind openKind("open");
Kind openToWriteKind("open.write");
Kind readKind("read");
Kind shortReadKind("read.short");
Kind writeKind("write");
Kind shortWriteKind("write.short");
Kind closeKind("close");

Real<int(const char*, int, ...)> realOpen("open");
Real<int(int, const char*, int, ...)> realOpenAt("openat");
Real<ssize_t(int, void*, size_t)> realRead("read");
Real<ssize_t(int, const void*, size_t)> realWrite("write");
Real<ssize_t(int, const void*, size_t, off_t)> realPwrite("pwrite");
Real<int(int)> realClose("close");

/// How much is to be read or written of `size`.
size_t shortened(Kind& kind, int file, size_t size) {
    return size > 1 && kind.strike(placeOf(file)) != 0 ? size / 2 : size;
}

/// True if the file is not to be opened.
bool staysClosed(std::uint32_t place, int flags) {
    const bool writes = (flags & O_ACCMODE) != O_RDONLY || (flags & O_CREAT) != 0;
    return fails(openKind, place) || (writes && fails(openToWriteKind, place));
}

int opened(int folder, const char* path, int flags, mode_t rights) {
    const std::uint32_t place = placeOf(folder, path);
    if (staysClosed(place, flags))
        return -1;
    return mark(realOpenAt.get()(folder, path, flags, rights), place);
}

mode_t rightsOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

OSTRAND_CALL int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t rights = rightsOf(flags, arguments);
    va_end(arguments);
    const std::uint32_t place = placeOf(path);
    if (staysClosed(place, flags))
        return -1;
    return mark(realOpen.get()(path, flags, rights), place);
}

OSTRAND_CALL int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t rights = rightsOf(flags, arguments);
    va_end(arguments);
    return opened(AT_FDCWD, path, flags, rights);
}

OSTRAND_CALL int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t rights = rightsOf(flags, arguments);
    va_end(arguments);
    return opened(folder, path, flags, rights);
}

OSTRAND_CALL int openat64(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t rights = rightsOf(flags, arguments);
    va_end(arguments);
    return opened(folder, path, flags, rights);
}

// What the checked forms of other libraries' calls come to. The name is the C library's own.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
OSTRAND_CALL int __openat64_2(int folder, const char* path, int flags) {
    return opened(folder, path, flags, 0);
}

OSTRAND_CALL ssize_t read(int file, void* memory, size_t size) {
    if (fails(readKind, placeOf(file)))
        return -1;
    return realRead.get()(file, memory, shortened(shortReadKind, file, size));
}

OSTRAND_CALL ssize_t write(int file, const void* memory, size_t size) {
    if (fails(writeKind, placeOf(file)))
        return -1;
    return realWrite.get()(file, memory, shortened(shortWriteKind, file, size));
}

OSTRAND_CALL ssize_t pwrite(int file, const void* memory, size_t size, off_t offset) {
    if (fails(writeKind, placeOf(file)))
        return -1;
    return realPwrite.get()(file, memory, shortened(shortWriteKind, file, size), offset);
}

OSTRAND_CALL int close(int file) {
    const std::uint32_t place = placeOf(file);
    mark(file, nowhere);
    const int result = realClose.get()(file);
    // The descriptor has gone in any case, as the system has it.
    return place != nowhere && fails(closeKind, place) ? -1 : result;
}

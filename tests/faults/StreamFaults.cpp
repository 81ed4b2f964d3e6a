// Streams of the C library, with which the log and uploads are written.

#include "tests/faults/FaultTable.h"
#include "tests/faults/Marks.h"

#include <cerrno>
#include <cstdio>

using namespace Faults;

namespace {

Kind openKind("open");
Kind openToWriteKind("open.write");
Kind writeKind("stream");
Kind closeKind("close");

Real<std::FILE*(const char*, const char*)> realOpen("fopen");
Real<size_t(const void*, size_t, size_t, std::FILE*)> realWrite("fwrite");
Real<int(std::FILE*)> realFlush("fflush");
Real<int(std::FILE*)> realClose("fclose");

std::FILE* opened(const char* path, const char* mode) {
    const std::uint32_t place = placeOf(path);
    if (fails(openKind, place) || (mode[0] != 'r' && fails(openToWriteKind, place)))
        return nullptr;
    std::FILE* const file = realOpen.get()(path, mode);
    if (file)
        mark(fileno(file), place);
    return file;
}

std::uint32_t placeOfStream(std::FILE* file) {
    return file ? placeOf(fileno(file)) : static_cast<std::uint32_t>(nowhere);
}

} // namespace

OSTRAND_CALL std::FILE* fopen(const char* path, const char* mode) {
    return opened(path, mode);
}

OSTRAND_CALL std::FILE* fopen64(const char* path, const char* mode) {
    return opened(path, mode);
}

OSTRAND_CALL size_t fwrite(const void* memory, size_t size, size_t count, std::FILE* file) {
    if (!fails(writeKind, placeOfStream(file)))
        return realWrite.get()(memory, size, count, file);
    const int error = errno;
    const size_t written = realWrite.get()(memory, size, count / 2, file);
    errno = error;
    return written;
}

OSTRAND_CALL int fflush(std::FILE* file) {
    return fails(writeKind, placeOfStream(file)) ? EOF : realFlush.get()(file);
}

OSTRAND_CALL int fclose(std::FILE* file) {
    const std::uint32_t place = placeOfStream(file);
    mark(fileno(file), nowhere);
    const int result = realClose.get()(file);
    return place != nowhere && fails(closeKind, place) ? EOF : result;
}

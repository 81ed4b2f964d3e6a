#include "tests/faults/Marks.h"

#include "tests/faults/FaultTable.h"

#include <atomic>
#include <cstring>

namespace Faults {

namespace {

constexpr int mostDescriptors = 1 << 20;
constexpr std::size_t longestFolder = 4096;

// Above the limit of descriptors that any test sets; untouched pages cost nothing.
std::atomic<std::uint8_t> places[mostDescriptors];

struct Folder {
    char path[longestFolder];
    std::size_t length;
};

Folder folders[2];

bool isBelow(const char* path, const Folder& folder) {
    return folder.length != 0 && std::strncmp(path, folder.path, folder.length) == 0 &&
           (path[folder.length] == '/' || path[folder.length] == '\0');
}

void take(Folder& folder, const char* text, std::size_t length) {
    if (length >= longestFolder)
        return;
    std::memcpy(folder.path, text, length);
    folder.path[length] = '\0';
    folder.length = length;
}

} // namespace

void setFolders(const char* text) {
    const char* const colon = std::strchr(text, ':');
    const std::size_t first = colon ? static_cast<std::size_t>(colon - text) : std::strlen(text);
    take(folders[0], text, first);
    if (colon)
        take(folders[1], colon + 1, std::strlen(colon + 1));
}

std::uint32_t placeOf(const char* path) {
    if (!path)
        return nowhere;
    if (isBelow(path, folders[0]))
        return cache;
    return isBelow(path, folders[1]) ? log : nowhere;
}

std::uint32_t placeOf(int folder, const char* path) {
    return path && path[0] != '/' ? placeOf(folder) : placeOf(path);
}

std::uint32_t placeOf(int descriptor) {
    if (descriptor < 0 || descriptor >= mostDescriptors)
        return nowhere;
    return places[descriptor].load(std::memory_order_relaxed);
}

int mark(int descriptor, std::uint32_t place) {
    if (descriptor >= 0 && descriptor < mostDescriptors)
        places[descriptor].store(static_cast<std::uint8_t>(place), std::memory_order_relaxed);
    return descriptor;
}

} // namespace Faults

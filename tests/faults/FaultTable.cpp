#include "tests/faults/FaultTable.h"

#include "tests/faults/Marks.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace Faults {

namespace {

constexpr std::uint64_t magicNumber = 0x31544c465254534f; // "OSTRFLT1", as the test writes it
constexpr const char* program = "OstrandService";

std::atomic<Table*> shared{nullptr};

Fault* entries(Table* own) {
    return reinterpret_cast<Fault*>(own + 1);
}

[[noreturn]] void giveUp(const char* reason) {
    std::fprintf(stderr, "faults: %s\n", reason);
    ::_exit(97);
}

/// True in the program under test, and not in a shell or a tool that starts or is started by it.
bool isProgram() {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return false;
    path[length] = '\0';
    const char* const name = std::strrchr(path, '/');
    return name && std::strcmp(name + 1, program) == 0;
}

Table* attach(const char* path) {
    const int file = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0));
    struct stat status {};
    if (file < 0 || ::fstat(file, &status) != 0)
        giveUp("cannot open the table");
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::syscall(SYS_close, file);
    if (memory == MAP_FAILED)
        giveUp("cannot map the table");
    Table* const own = static_cast<Table*>(memory);
    if (size < sizeof(Table) || own->magic != magicNumber ||
        size < sizeof(Table) + own->count * sizeof(Fault))
        giveUp("no table");
    return own;
}

/// Tools are to run undisturbed, and are to see the environment as if there were no faults.
void forget(const char* name) {
    ::unsetenv(name);
}

__attribute__((constructor)) void begin() {
    const char* const path = std::getenv("OSTRAND_FAULTS_TABLE");
    const char* const folders = std::getenv("OSTRAND_FAULTS_FOLDERS");
    if (!path || !folders || !isProgram())
        return;
    setFolders(folders);
    Table* const own = attach(path);
    own->attached.store(1);
    shared.store(own, std::memory_order_release);
    forget("OSTRAND_FAULTS_TABLE");
    forget("OSTRAND_FAULTS_FOLDERS");
    forget("LD_PRELOAD");
}

std::uint64_t scramble(std::uint64_t value) {
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ULL;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebULL;
    return value ^ (value >> 31);
}

} // namespace

Table* table() {
    return shared.load(std::memory_order_acquire);
}

std::uint64_t chance(std::uint64_t limit) {
    static std::atomic<std::uint64_t> asked{0};
    Table* const own = table();
    const std::uint64_t turn = asked.fetch_add(1, std::memory_order_relaxed) + 1;
    return scramble((own ? own->seed : 0) + turn * 0x9e3779b97f4a7c15ULL) % limit;
}

int Kind::strike(std::uint32_t place) {
    Table* const own = table();
    if (!own || place == nowhere || own->on.load(std::memory_order_relaxed) == 0)
        return 0;
    if (!looked.load(std::memory_order_acquire)) {
        for (std::uint32_t number = 0; number < own->count; ++number) {
            if (std::strncmp(entries(own)[number].name, name, sizeof(Fault::name)) == 0)
                entry.store(&entries(own)[number]);
        }
        looked.store(true, std::memory_order_release);
    }
    Fault* const fault = entry.load(std::memory_order_relaxed);
    const std::uint32_t rate = fault ? fault->perMillion.load(std::memory_order_relaxed) : 0;
    if (rate == 0 || (fault->where.load(std::memory_order_relaxed) & place) == 0)
        return 0;
    fault->seen.fetch_add(1, std::memory_order_relaxed);
    if (chance(1'000'000) >= rate)
        return 0;
    std::uint64_t known = 0;
    while (known < 4 && fault->errors[known].load(std::memory_order_relaxed) != 0)
        ++known;
    if (known == 0)
        return 0;
    fault->struck.fetch_add(1, std::memory_order_relaxed);
    return fault->errors[chance(known)].load(std::memory_order_relaxed);
}

bool fails(Kind& kind, std::uint32_t place) {
    delay(place);
    const int error = kind.strike(place);
    if (error == 0)
        return false;
    errno = error;
    return true;
}

void delay(std::uint32_t place) {
    static Kind kind("delay");
    if (kind.strike(place) == 0)
        return;
    const std::uint32_t micros = table()->delayMicros.load(std::memory_order_relaxed);
    const timespec pause{static_cast<time_t>(micros / 1'000'000),
                         static_cast<long>(micros % 1'000'000) * 1000};
    const int before = errno;
    ::syscall(SYS_nanosleep, &pause, nullptr);
    errno = before;
}

void* nextCall(const char* name) {
    void* const found = ::dlsym(RTLD_NEXT, name);
    if (!found)
        giveUp(name);
    return found;
}

} // namespace Faults

// Tools and threads: started and waited for.

#include "tests/faults/FaultTable.h"
#include "tests/faults/Marks.h"

#include <cerrno>
#include <cstdarg>
#include <pthread.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Faults;

namespace {

Kind spawnKind("spawn");
Kind threadKind("thread");
Kind waitKind("wait");
Kind pidFdKind("pidfd");

using Start = void*(void*);

Real<int(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
         char* const*, char* const*)>
    realSpawn("posix_spawn");
Real<int(pthread_t*, const pthread_attr_t*, Start*, void*)> realThread("pthread_create");
Real<int(idtype_t, id_t, siginfo_t*, int)> realWaitId("waitid");
Real<pid_t(pid_t, int*, int)> realWaitPid("waitpid");
Real<long(long, ...)> realSyscall("syscall");

} // namespace

OSTRAND_CALL int posix_spawn(pid_t* child, const char* path,
                             const posix_spawn_file_actions_t* actions,
                             const posix_spawnattr_t* attributes, char* const* arguments,
                             char* const* environment) {
    const int error = spawnKind.strike(process);
    return error != 0 ? error
                      : realSpawn.get()(child, path, actions, attributes, arguments, environment);
}

OSTRAND_CALL int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, Start* start,
                                void* argument) noexcept {
    const int error = threadKind.strike(process);
    return error != 0 ? error : realThread.get()(thread, attributes, start, argument);
}

OSTRAND_CALL int waitid(idtype_t kind, id_t which, siginfo_t* end, int flags) {
    return fails(waitKind, process) ? -1 : realWaitId.get()(kind, which, end, flags);
}

OSTRAND_CALL pid_t waitpid(pid_t child, int* status, int flags) {
    return fails(waitKind, process) ? -1 : realWaitPid.get()(child, status, flags);
}

// The handle of a process has no call of its own in the program's source.
OSTRAND_CALL long syscall(long number, ...) noexcept {
    va_list given;
    va_start(given, number);
    long arguments[6];
    for (long& argument : arguments)
        argument = va_arg(given, long);
    va_end(given);
    if (number == SYS_pidfd_open && fails(pidFdKind, process))
        return -1;
    return realSyscall.get()(number, arguments[0], arguments[1], arguments[2], arguments[3],
                             arguments[4], arguments[5]);
}

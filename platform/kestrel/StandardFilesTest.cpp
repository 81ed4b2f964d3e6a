#include "platform/kestrel/StandardFiles.h"

#include <bitset>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kestrel {

namespace {

using Descriptors = std::bitset<STDERR_FILENO + 1>;

dev_t deviceOf(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? status.st_rdev : 0;
}

/// The descriptors that are the null device in a child that was started without those of `missing`
/// and has called the operation; all of the others are a pipe there.
Descriptors nullDevices(const Descriptors& missing) {
    const pid_t child = ::fork();
    if (child == 0) {
        int ends[2] = {-1, -1};
        const int null = ::open("/dev/null", O_RDONLY);
        const dev_t device = deviceOf(null);
        if (null < 0 || ::pipe(ends) != 0)
            ::_exit(0);
        for (int number = 0; number <= STDERR_FILENO; ++number)
            ::dup2(ends[1], number);
        ::close(ends[0]);
        ::close(ends[1]);
        ::close(null);
        for (int number = 0; number <= STDERR_FILENO; ++number) {
            if (missing[static_cast<std::size_t>(number)])
                ::close(number);
        }
        openStandardFiles();
        Descriptors found;
        for (int number = 0; number <= STDERR_FILENO; ++number)
            found[static_cast<std::size_t>(number)] = deviceOf(number) == device;
        ::_exit(static_cast<int>(found.to_ulong()));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? Descriptors(static_cast<unsigned long long>(WEXITSTATUS(status)))
                             : Descriptors();
}

} // namespace

TEST(StandardFilesTest, OnlyMissingOnesBecomeTheNullDevice) {
    for (unsigned long long missing = 0; missing < 8; ++missing)
        EXPECT_EQ(nullDevices(Descriptors(missing)), Descriptors(missing));
}

TEST(StandardFilesTest, NoFurtherDescriptorStaysOpen) {
    const int before = ::open("/dev/null", O_RDONLY);
    ::close(before);
    openStandardFiles();
    const int after = ::open("/dev/null", O_RDONLY);
    ::close(after);
    EXPECT_EQ(after, before);
}

} // namespace Kestrel

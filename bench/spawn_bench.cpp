// The start and the end of a tool, and nothing else: `spawn_bench COUNT THREADS TOOL` runs the tool
// COUNT times, in THREADS threads one after the other, in the cheapest way that the system has, and
// prints how many ended a second. No queue that starts its tools on this machine is faster.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

void runOnce(char* tool) {
    char* const arguments[] = {tool, nullptr};
    pid_t process = 0;
    int status = 0;
    if (::posix_spawnp(&process, tool, nullptr, nullptr, arguments, environ) != 0 ||
        ::waitpid(process, &status, 0) != process || status != 0) {
        std::fprintf(stderr, "%s: can't be run, or failed\n", tool);
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: spawn_bench COUNT THREADS TOOL\n");
        return 2;
    }
    const int count = std::atoi(argv[1]);
    std::atomic<int> next{1};
    const auto begin = std::chrono::steady_clock::now();
    std::vector<std::thread> threads(static_cast<std::size_t>(std::max(0, std::atoi(argv[2]))));
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            while (next++ <= count)
                runOnce(argv[3]);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::printf("%.1f\n", count / taken.count());
    return 0;
}

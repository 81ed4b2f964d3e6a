// The work on the disk that a submission leaves, and nothing else: `folder_bench ROOT COUNT
// THREADS` makes the folders and files of COUNT jobs below ROOT and prints how many it made a
// second.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

void check(bool done, const std::string& path) {
    if (done)
        return;
    std::perror(path.c_str());
    std::exit(1);
}

void makeFile(const std::string& path, const std::string& text) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(file >= 0, path);
    check(::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
    ::close(file);
}

void makeJob(const std::string& root, int number) {
    const std::string folder = root + "/" + std::to_string(number);
    check(::mkdir(folder.c_str(), 0777) == 0, folder);
    makeFile(folder + "/.meta",
             R"({"commands":["true"],"uid":"job )" + std::to_string(number) + "\"}");
    for (const char* name : {"/binGeo", "/imgGeo", "/popGeo", "/src", "/struct", "/acc"})
        check(::mkdir((folder + name).c_str(), 0777) == 0, folder + name);
    makeFile(folder + "/.status", "{ \"status\" : 0 }\n");
    makeFile(folder + "/.partial", "");
    makeFile(folder + "/jobId", std::to_string(number) + "@bench");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: folder_bench ROOT COUNT THREADS\n");
        return 2;
    }
    const std::string root = argv[1];
    const int count = std::atoi(argv[2]);
    std::atomic<int> next{1};
    const auto begin = std::chrono::steady_clock::now();
    std::vector<std::thread> threads(static_cast<std::size_t>(std::max(0, std::atoi(argv[3]))));
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int number = next++; number <= count; number = next++)
                makeJob(root, number);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::printf("%.1f\n", count / taken.count());
    return 0;
}

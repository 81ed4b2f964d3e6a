#include "platform/kestrel/SysInfo.h"

#include "platform/kestrel/CommandLine.h"

#include <algorithm>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace Kestrel {

namespace {

std::string contents(const char* path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::string systemName(const utsname& kernel) {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::string name = SysInfo::prettyName(contents(path));
        if (!name.empty())
            return name;
    }
    return std::string(kernel.sysname) + " " + kernel.release;
}

std::uint32_t usableCpus() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return static_cast<std::uint32_t>(CPU_COUNT(&set));
    // More processors than the set can hold.
    return std::max(1U, std::thread::hardware_concurrency());
}

} // namespace

SysInfo& SysInfo::the() {
    static SysInfo* const instance = new SysInfo;
    return *instance;
}

SysInfo::SysInfo() : numCpus(usableCpus()) {
    utsname kernel = {};
    ::uname(&kernel);
    osName = systemName(kernel);
    machineType = kernel.machine;
    // Not the name that a name server knows: that may hang, and a start must not wait for it.
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) == 0)
        host = name;
    if (host.empty())
        host = "localhost";
}

std::string SysInfo::prettyName(const std::string& osRelease) {
    const std::string key = "PRETTY_NAME=";
    std::istringstream in(osRelease);
    std::string name;
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, key.size(), key) != 0)
            continue;
        // Values are written as in a shell; the last of several counts, as there.
        const auto words = CommandLine::split(line.substr(key.size()));
        name = words && !words->empty() ? words->front() : "";
    }
    return name;
}

} // namespace Kestrel

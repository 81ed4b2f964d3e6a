#include "platform/kestrel/SysInfo.h"

#include <fstream>
#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace Kestrel {

namespace {

std::string withoutQuotes(const std::string& text) {
    if (text.size() >= 2 && (text.front() == '"' || text.front() == '\'') &&
        text.back() == text.front())
        return text.substr(1, text.size() - 2);
    return text;
}

std::string prettyName() {
    const std::string key = "PRETTY_NAME=";
    std::ifstream in("/etc/os-release");
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, key.size(), key) == 0)
            return withoutQuotes(line.substr(key.size()));
    }
    return "Linux";
}

std::uint32_t usableCpus() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return static_cast<std::uint32_t>(CPU_COUNT(&set));
    return 1;
}

} // namespace

SysInfo& SysInfo::the() {
    static SysInfo* const instance = new SysInfo;
    return *instance;
}

SysInfo::SysInfo() : osName(prettyName()), numCpus(usableCpus()) {
    // The kernel's own name; a name server may hang, and a start must not wait for one.
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) == 0)
        host = name;
    if (host.empty())
        host = "localhost";
    utsname system = {};
    if (::uname(&system) == 0)
        machineType = system.machine;
}

} // namespace Kestrel

#pragma once

#include <cstdint>
#include <string>

namespace Kestrel {

/// What is fixed about the machine, read once on first use. Read-only afterwards, by any thread.
class SysInfo {
public:
    /// The one instance, made on first use and never destroyed.
    static SysInfo& the();

    /// The machine's own name as the kernel has it; no name server is asked.
    const std::string& hostName() const { return host; }

    /// The name and version of the system in the text of an os-release file, without the quotes;
    /// empty where it tells none.
    static std::string prettyName(const std::string& osRelease);

    std::string osName;      ///< name and version of the system: PRETTY_NAME of os-release
    std::string machineType; ///< hardware name of the kernel, as in `uname -m`
    std::uint32_t numCpus;   ///< processors that this process may run on, at least 1

private:
    SysInfo();

    std::string host;
};

} // namespace Kestrel

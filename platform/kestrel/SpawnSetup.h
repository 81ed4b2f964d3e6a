#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace Kestrel {

/// Argument vector, environment and attributes of one posix_spawn call: a process group of its own,
/// default signal dispositions, an empty signal mask, no open file but the standard three.
class SpawnSetup {
public:
    /// `words` are the program's arguments, its own name first; `variables` come on top of the
    /// calling process's environment, the last of equal names counts. A variable that no
    /// environment can hold (an empty name, "=" in the name, a zero byte) is left out.
    SpawnSetup(std::vector<std::string> words,
               const std::vector<std::pair<std::string, std::string>>& variables);

    /// Starts `program`, an absolute path, in `workDir`, with standard input from the null device
    /// and both output streams on `console`, or on the null device where that is -1. `console` is
    /// none of the standard three. Returns the child's process id, nothing where it can't be
    /// started.
    std::optional<pid_t> spawn(const std::string& program, const std::string& workDir, int console);

private:
    std::vector<std::string> arguments;
    std::vector<std::string> environment; ///< "NAME=value"
};

} // namespace Kestrel

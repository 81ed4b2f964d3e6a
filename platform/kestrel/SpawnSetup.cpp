#include "platform/kestrel/SpawnSetup.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace Kestrel {

namespace {

bool isGiven(const std::vector<std::pair<std::string, std::string>>& variables,
             const char* inherited) {
    for (const auto& variable : variables) {
        const std::size_t size = variable.first.size();
        if (std::strncmp(inherited, variable.first.c_str(), size) == 0 && inherited[size] == '=')
            return true;
    }
    return false;
}

/// The null-terminated array that the system calls take.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// The attributes; released at the end of a scope.
class Attributes {
public:
    Attributes() {
        posix_spawnattr_init(&native);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&native, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&native, &signals);
        posix_spawnattr_setpgroup(&native, 0);
        posix_spawnattr_setflags(&native,
                                 static_cast<short>(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF |
                                                    POSIX_SPAWN_SETSIGMASK));
    }
    ~Attributes() { posix_spawnattr_destroy(&native); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    posix_spawnattr_t native;
};

/// The steps in the child before the program; released at the end of a scope.
class FileActions {
public:
    FileActions(const std::string& workDir, int console) {
        posix_spawn_file_actions_init(&native);
        posix_spawn_file_actions_addopen(&native, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&native, console, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&native, console, STDERR_FILENO);
        posix_spawn_file_actions_addchdir_np(&native, workDir.c_str());
        posix_spawn_file_actions_addclosefrom_np(&native, STDERR_FILENO + 1);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&native); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    posix_spawn_file_actions_t native;
};

} // namespace

SpawnSetup::SpawnSetup(std::vector<std::string> words,
                       const std::vector<std::pair<std::string, std::string>>& variables)
    : arguments(std::move(words)) {
    for (char** inherited = environ; *inherited; ++inherited) {
        if (!isGiven(variables, *inherited))
            environment.emplace_back(*inherited);
    }
    for (const auto& variable : variables)
        environment.push_back(variable.first + "=" + variable.second);
}

bool SpawnSetup::spawn(const std::string& program, const std::string& workDir, int console,
                       pid_t& child) {
    const Attributes attributes;
    const FileActions actions(workDir, console);
    std::vector<char*> argv = pointersTo(arguments);
    std::vector<char*> envp = pointersTo(environment);
    // Not the form that searches the PATH: it would also hand files without an interpreter line to
    // a shell.
    return ::posix_spawn(&child, program.c_str(), &actions.native, &attributes.native, argv.data(),
                         envp.data()) == 0;
}

} // namespace Kestrel

#include "platform/kestrel/SpawnSetup.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace Kestrel {

namespace {

bool canBeSet(const std::string& name, const std::string& value) {
    return !name.empty() && name.find('=') == std::string::npos &&
           name.find('\0') == std::string::npos && value.find('\0') == std::string::npos;
}

/// Sets NAME=value in `environment` in place of what it holds under that name.
void setVariable(std::vector<std::string>& environment, const std::string& name,
                 const std::string& value) {
    const std::string start = name + "=";
    const auto isOld = [&start](const std::string& entry) {
        return entry.compare(0, start.size(), start) == 0;
    };
    environment.erase(std::remove_if(environment.begin(), environment.end(), isOld),
                      environment.end());
    environment.push_back(start + value);
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
        // sigfillset() leaves out the two that the C library keeps for itself, which would then
        // reach the tool as ignored ones.
        std::memset(&signals, 0xff, sizeof signals);
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
        need(posix_spawn_file_actions_addopen(&native, STDIN_FILENO, nullDevice, O_RDONLY, 0));
        if (console < 0)
            need(posix_spawn_file_actions_addopen(&native, STDOUT_FILENO, nullDevice, O_WRONLY, 0));
        else
            need(posix_spawn_file_actions_adddup2(&native, console, STDOUT_FILENO));
        need(posix_spawn_file_actions_adddup2(&native, STDOUT_FILENO, STDERR_FILENO));
        need(posix_spawn_file_actions_addchdir_np(&native, workDir.c_str()));
        need(posix_spawn_file_actions_addclosefrom_np(&native, STDERR_FILENO + 1));
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&native); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    posix_spawn_file_actions_t native;
    bool complete = true; ///< a step that is missing would start the tool in the wrong place

private:
    static constexpr const char* nullDevice = "/dev/null";

    void need(int error) { complete = complete && error == 0; }
};

} // namespace

SpawnSetup::SpawnSetup(std::vector<std::string> words,
                       const std::vector<std::pair<std::string, std::string>>& variables)
    : arguments(std::move(words)) {
    for (char** inherited = environ; inherited && *inherited; ++inherited)
        environment.emplace_back(*inherited);
    for (const auto& [name, value] : variables) {
        if (canBeSet(name, value))
            setVariable(environment, name, value);
    }
}

std::optional<pid_t> SpawnSetup::spawn(const std::string& program, const std::string& workDir,
                                       int console) {
    const Attributes attributes;
    const FileActions actions(workDir, console);
    if (!actions.complete)
        return std::nullopt;
    std::vector<char*> argv = pointersTo(arguments);
    std::vector<char*> envp = pointersTo(environment);
    // Not the form that searches the PATH: that would happen behind the change of the folder.
    pid_t child = -1;
    if (::posix_spawn(&child, program.c_str(), &actions.native, &attributes.native, argv.data(),
                      envp.data()) != 0)
        return std::nullopt;
    return child;
}

} // namespace Kestrel

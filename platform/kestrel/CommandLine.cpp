#include "platform/kestrel/CommandLine.h"

#include <climits>
#include <cstdlib>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace Kestrel {

namespace {

constexpr std::string_view windowsEnding = ".exe";

/// Splits one text, a character at a time.
class Splitter {
public:
    explicit Splitter(const std::string& source) : text(source) {}

    /// False for an unclosed quote or a backslash at the end.
    bool run(std::vector<std::string>& words) {
        while (at < text.size()) {
            if (!step(words))
                return false;
        }
        endWord(words);
        return true;
    }

private:
    bool step(std::vector<std::string>& words) {
        const char c = text[at++];
        switch (c) {
        case ' ':
        case '\t':
        case '\n':
        case '\r':
            endWord(words);
            return true;
        case '\'':
            return singleQuoted();
        case '"':
            return doubleQuoted();
        case '\\':
            if (at == text.size())
                return false;
            add(text[at++]);
            return true;
        default:
            add(c);
            return true;
        }
    }

    bool singleQuoted() {
        inWord = true;
        const std::string::size_type end = text.find('\'', at);
        if (end == std::string::npos)
            return false;
        word.append(text, at, end - at);
        at = end + 1;
        return true;
    }

    bool doubleQuoted() {
        inWord = true;
        while (at < text.size()) {
            const char c = text[at++];
            if (c == '"')
                return true;
            if (c == '\\' && at < text.size() && (text[at] == '"' || text[at] == '\\'))
                word += text[at++];
            else
                word += c;
        }
        return false;
    }

    void add(char c) {
        word += c;
        inWord = true;
    }

    void endWord(std::vector<std::string>& words) {
        if (inWord)
            words.push_back(word);
        word.clear();
        inWord = false;
    }

    const std::string& text;
    std::string::size_type at = 0;
    std::string word;
    bool inWord = false; ///< a quoted empty word is one
};

bool exists(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0;
}

bool isProgram(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

/// `path` seen from the calling process's folder, so that it holds in another one.
/// Empty where that folder has no name any more.
std::string absolute(const std::string& path) {
    if (path.front() == '/')
        return path;
    char folder[PATH_MAX];
    // A folder outside the process's root has a name without a slash in front.
    if (!::getcwd(folder, sizeof folder) || folder[0] != '/')
        return "";
    return std::string(folder) + "/" + path;
}

bool endsIn(const std::string& text, std::string_view ending) {
    return text.size() > ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

std::string searchPath(const std::string& program) {
    const char* variable = std::getenv("PATH");
    const std::string folders = variable ? variable : "/usr/local/bin:/usr/bin:/bin";
    std::string::size_type begin = 0;
    for (;;) {
        const std::string::size_type end = folders.find(':', begin);
        const std::string folder = folders.substr(begin, end - begin);
        std::string candidate = absolute((folder.empty() ? "." : folder) + "/" + program);
        if (isProgram(candidate))
            return candidate;
        if (end == std::string::npos)
            return "";
        begin = end + 1;
    }
}

} // namespace

std::optional<std::vector<std::string>> CommandLine::split(const std::string& text) {
    std::vector<std::string> words;
    if (!Splitter(text).run(words))
        return std::nullopt;
    return words;
}

std::string CommandLine::program(const std::string& text) {
    const std::optional<std::vector<std::string>> words = split(text);
    return words && !words->empty() ? words->front() : std::string();
}

std::string CommandLine::locate(const std::string& program, const std::string& workDir) {
    if (program.empty() || program.find('\0') != std::string::npos)
        return "";
    if (program.find('/') == std::string::npos) {
        const std::string found = searchPath(program);
        return found.empty() && endsIn(program, windowsEnding)
                   ? searchPath(program.substr(0, program.size() - windowsEnding.size()))
                   : found;
    }
    if (exists(program))
        return absolute(program);
    const std::string inWorkDir = workDir + "/" + program;
    return program.front() != '/' && !workDir.empty() && exists(inWorkDir) ? absolute(inWorkDir)
                                                                           : "";
}

} // namespace Kestrel

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Kestrel {

/// A tool's command line as words.
///
/// Words are split as a POSIX shell does, with no expansion of any kind: blanks, tabs and line
/// ends separate; single quotes keep everything up to the next one; double quotes keep everything
/// but a backslash before `"` or `\`; outside quotes a backslash keeps the next character; a quoted
/// empty word is a word. A carriage return counts as a line end, so that texts from elsewhere split
/// alike.
class CommandLine {
public:
    /// The words of `text`; nothing where a quote is not closed or a backslash stands at the end.
    /// A text without a word gives an empty list.
    static std::optional<std::vector<std::string>> split(const std::string& text);

    /// The first word of `text`, the program; empty where split() gives no word.
    static std::string program(const std::string& text);

    /// The absolute path of the file to execute for the first word `program` of a command line;
    /// empty where there is none. With a slash in it, a relative path is taken from the calling
    /// process's folder if it exists there, else from `workDir`; whether the file can be executed
    /// shows at its start. Without one the PATH is searched for a file that may be executed and,
    /// where `program` ends in ".exe" and is not found, searched once more without that ending.
    static std::string locate(const std::string& program, const std::string& workDir);
};

} // namespace Kestrel

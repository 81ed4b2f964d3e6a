#pragma once

#include <memory>
#include <string>

namespace OstrandService {

/// The service's log, `<log path>/messages.log`: one line a message, with the time in UTC, rotated
/// at 10 MiB, five old files kept.
///
/// Any thread may log. Nothing is opened before the first line: the path may be set twice, and a
/// start that ends early leaves no folder behind. A log that can't be written loses the line and is
/// tried again at the next; of one that has begun standard error tells it, once a minute at most.
class MessageLog {
public:
    /// The one instance, made on first use and never destroyed.
    static MessageLog* the();

    /// The folder of the log, relative to the working folder or absolute. The last call wins.
    static void setLogPath(const std::string& path);

    /// The folder that was set last; empty before the first call.
    static std::string getLogPath();

    /// Appends a line and writes it through. Line ends inside `text` appear as `\n` and `\r`.
    void log(const std::string& text);
    void log(const char* text);

private:
    MessageLog();
    ~MessageLog();

    struct State;
    const std::unique_ptr<State> state;
};

} // namespace OstrandService

#include "platform/hub/MessageLog.h"

#include "platform/hub/RotatingFile.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <optional>

namespace OstrandService {

struct MessageLog::State {
    std::mutex mutex; ///< guards what follows, over the writing too: lines keep their order

    std::string path;                   ///< folder, as it was set
    std::unique_ptr<RotatingFile> file; ///< of `path`; null before its first line
    bool begun = false;                 ///< a line has been written there
    std::optional<std::chrono::steady_clock::time_point> told; ///< when a lost line was told last

    void write(const std::string& line);
};

namespace {

/// `text` as one line: a client's text must not be able to forge a second one.
std::string onOneLine(const std::string& text) {
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        if (c == '\n')
            line += "\\n";
        else if (c == '\r')
            line += "\\r";
        else
            line += c;
    }
    return line;
}

constexpr std::chrono::minutes toldEvery{1};

} // namespace

/// With the mutex held.
void MessageLog::State::write(const std::string& line) {
    const std::string name = path + "/messages.log";
    if (!file)
        file = std::make_unique<RotatingFile>(name, ' ', "", RotatingFile::Limits());
    if (file->write(line)) {
        begun = true;
        return;
    }
    // One that never began is silent: start scripts compare what a start prints.
    if (!begun)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (told && now - *told < toldEvery)
        return;
    told = now;
    std::fprintf(stderr, "cannot write the log %s: %s\n", name.c_str(), file->problem().c_str());
}

MessageLog::MessageLog() : state(std::make_unique<State>()) {}

MessageLog::~MessageLog() = default;

MessageLog* MessageLog::the() {
    static MessageLog* const instance = new MessageLog;
    return instance;
}

void MessageLog::setLogPath(const std::string& path) {
    State& state = *the()->state;
    const std::lock_guard<std::mutex> guard(state.mutex);
    if (state.path == path)
        return;
    state.path = path;
    state.file.reset();
    state.begun = false;
    state.told.reset();
}

std::string MessageLog::getLogPath() {
    State& state = *the()->state;
    const std::lock_guard<std::mutex> guard(state.mutex);
    return state.path;
}

void MessageLog::log(const std::string& text) {
    try {
        const std::string line = onOneLine(text);
        const std::lock_guard<std::mutex> guard(state->mutex);
        if (!state->path.empty())
            state->write(line);
    } catch (...) {
        // Out of memory: nobody is there to be told, and no caller expects an exception.
    }
}

void MessageLog::log(const char* text) {
    log(std::string(text ? text : ""));
}

} // namespace OstrandService

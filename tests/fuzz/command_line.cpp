// Command lines: words that are quoted again split into the same words.

#include "platform/kestrel/CommandLine.h"
#include "tests/fuzz/Input.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Kestrel::CommandLine;
    const auto words = CommandLine::split(std::string(Fuzz::textOf(data, size)));
    if (!words)
        return 0;
    std::string quoted;
    for (const std::string& word : *words) {
        quoted += " \"";
        for (const char c : word) {
            if (c == '"' || c == '\\')
                quoted += '\\';
            quoted += c;
        }
        quoted += '"';
    }
    Fuzz::require(CommandLine::split(quoted) == words);
    Fuzz::require(CommandLine::program(quoted) == (words->empty() ? "" : words->front()));
    return 0;
}

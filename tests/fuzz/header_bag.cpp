// The fields of a head: joined by the way for many fields as by the plain one, but for the order.

#include "platform/portico/FieldJoiner.h"
#include "platform/portico/MessageHeader.h"
#include "tests/fuzz/Input.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Portico::MessageHeader plain;
    Portico::MessageHeader joined;
    Portico::FieldJoiner joiner(joined);
    // Each line is a field: its first byte the name, of few, the rest the value.
    std::string_view text = Fuzz::textOf(data, size);
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        // The parser lets no other bytes into a name.
        if (line.empty() || !std::isalnum(static_cast<unsigned char>(line[0])))
            continue;
        const std::string name(1 + static_cast<unsigned char>(line[0]) % 3, line[0]);
        plain.joinParam(name, std::string(line.substr(1)));
        joiner.add(name, std::string(line.substr(1)));
    }
    joiner.finish();
    Fuzz::require(plain.entries().size() == joined.entries().size());
    for (const auto& [name, value] : plain.entries())
        Fuzz::require(joined.getParam(name.c_str(), "") == std::string(value.c_str()));
    return 0;
}

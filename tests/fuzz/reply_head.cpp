// The head of a reply: whatever values a page put into it, it has the lines that it should
// have, and none of them is of a client's making.

#include "platform/portico/ReplyHead.h"
#include "tests/fuzz/Input.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

/// The texts of an input, which ends each with the byte 1 so that line ends may stand in them.
std::vector<std::string> textsOf(std::string_view input) {
    std::vector<std::string> texts;
    while (!input.empty()) {
        const std::string_view text = input.substr(0, input.find('\1'));
        input.remove_prefix(std::min(input.size(), text.size() + 1));
        texts.emplace_back(text);
    }
    return texts;
}

/// The lines of a head that ends in an empty one; the empty one is left out.
std::vector<std::string> linesOf(const std::string& head) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < head.size()) {
        const std::size_t end = head.find("\r\n", at);
        Fuzz::require(end != std::string::npos);
        lines.push_back(head.substr(at, end - at));
        at = end + 2;
    }
    Fuzz::require(!lines.empty() && lines.back().empty());
    lines.pop_back();
    return lines;
}

/// Names that pages use, and some that are not theirs to set.
constexpr const char* names[] = {"Location",       "Content-Type", "Access-Control-Allow-Origin",
                                 "content-length", "Server",       "TRANSFER-ENCODING"};
constexpr std::size_t ownNames = 3;

/// A value as it may stand in a line.
std::string clean(const std::string& value) {
    std::string text = value.c_str();
    text.erase(
        std::remove_if(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }),
        text.end());
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::vector<std::string> texts = textsOf(Fuzz::textOf(data + 2, size - 2));
    const std::string realm = texts.empty() ? "" : texts.front();
    Portico::ProtocolHTTP::Reply reply;
    reply.setCode(data[0] * 4u);
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < std::size(names) && i + 1 < texts.size(); ++i) {
        reply.header().setParam(names[i], texts[i + 1].c_str());
        if (i < ownNames)
            expected.push_back(names[i] + (": " + clean(texts[i + 1])));
    }
    Portico::ReplyHead head{realm};
    head.toHead = (data[1] & 1) != 0;
    head.close = (data[1] & 2) != 0;
    std::vector<std::string> lines = linesOf(head.compose(reply));
    Fuzz::require(lines.size() >= 3 + expected.size());
    Fuzz::require(lines[0].compare(0, 9, "HTTP/1.1 ") == 0);
    Fuzz::require(lines[2].compare(0, 6, "Date: ") == 0);
    Fuzz::require(std::equal(expected.begin(), expected.end(), lines.begin() + 3));
    // What is left is the server's own and tells where the message ends.
    lines.erase(lines.begin() + 1,
                lines.begin() + 3 + static_cast<std::ptrdiff_t>(expected.size()));
    lines.erase(lines.begin());
    Fuzz::require(lines.size() <= 2);
    for (const std::string& line : lines)
        Fuzz::require(line == "Content-Length: 0" || line == "Connection: close");
    return 0;
}

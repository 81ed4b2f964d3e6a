// Requests as they come over a connection: what is read does not depend on the pieces they come in,
// and neither does what is left for the next one.

#include "platform/portico/InputBuffer.h"
#include "platform/portico/RequestReader.h"
#include "tests/fuzz/Input.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>

namespace {

using Portico::RequestReader;

constexpr std::uint64_t largestBody = 4096; ///< bytes

/// The request for the log: a line for each field, whatever is in them.
std::string logged(const Portico::ProtocolHTTP::Request& request) {
    std::ostringstream out;
    out << request;
    const std::string text = out.str();
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    Fuzz::require(std::count_if(text.begin(), text.end(), isControl) ==
                  static_cast<std::ptrdiff_t>(request.header().entries().size()));
    return text;
}

/// What every page relies on. Gives all that the request holds.
std::string checkRequest(Portico::ProtocolHTTP::Request& request) {
    Fuzz::require(!request.method.empty() && request.uri.front() == '/');
    Fuzz::require(request.body().size() <= largestBody);
    std::string all = logged(request) + "\n";
    for (const auto& [name, value] : request.header().entries()) {
        Fuzz::require(!name.empty() && name.find_first_of(": \t") == std::string::npos);
        Fuzz::require(value.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos);
        all += value + "\n";
    }
    return all + request.body() + "\n";
}

/// Everything that a page could see of the requests in `text`, and where reading ended.
std::string readAll(std::string_view text, std::size_t piece) {
    std::ostringstream seen;
    Portico::InputBuffer input;
    std::unique_ptr<RequestReader> reader = std::make_unique<RequestReader>(largestBody);
    for (;;) {
        switch (reader->advance(input)) {
        case RequestReader::Step::Refused:
            seen << "refused " << reader->refusal().code;
            return seen.str();
        case RequestReader::Step::SendContinue:
            break;
        case RequestReader::Step::Complete:
            seen << checkRequest(reader->request());
            reader = std::make_unique<RequestReader>(largestBody);
            break;
        case RequestReader::Step::NeedMore: {
            if (text.empty()) {
                seen << (reader->hasBegun() ? "unfinished" : "rest");
                return seen.str();
            }
            const std::size_t count = std::min(piece, text.size());
            input.prepare(count);
            const std::size_t taken = std::min(count, input.room());
            Fuzz::require(taken > 0);
            std::memcpy(input.tail(), text.data(), taken);
            input.commit(taken);
            text.remove_prefix(taken);
            break;
        }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    // The first byte tells the size of the pieces.
    const std::string_view text = Fuzz::textOf(data + 1, size - 1);
    Fuzz::require(readAll(text, 1 + data[0] % 32) == readAll(text, text.size() + 1));
    return 0;
}

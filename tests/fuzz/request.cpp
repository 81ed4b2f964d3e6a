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

/// What every page relies on.
void checkRequest(Portico::ProtocolHTTP::Request& request) {
    Fuzz::require(!request.method.empty() && request.uri.front() == '/');
    Fuzz::require(request.body().size() <= largestBody);
    for (const auto& [name, value] : request.header().entries()) {
        Fuzz::require(!name.empty() && name.find_first_of(": \t") == std::string::npos);
        Fuzz::require(value.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos);
    }
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
            checkRequest(reader->request());
            seen << reader->request() << "\n" << reader->request().body() << "\n";
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

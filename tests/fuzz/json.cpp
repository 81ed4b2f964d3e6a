// JSON as the hub and its clients send it: what is written again reads the same, what is escaped
// comes back, and of a list of questions no more are taken than stand in it.

#include "platform/hub/Json.h"
#include "framework/JsonNumbers.h"
#include "framework/StateList.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

namespace {

void checkNumbers(const picojson::value& value) {
    if (!value.is<double>())
        return;
    const std::string text = integerPart(value.get<double>());
    const std::size_t sign = text[0] == '-' ? 1 : 0;
    Fuzz::require(text.size() > sign &&
                  text.find_first_not_of("0123456789", sign) == std::string::npos);
    const std::int32_t cut = cutToInt(value.get<double>());
    if (text.size() < 10)
        Fuzz::require(std::to_string(cut) == text);
}

void checkQuestions(const picojson::value& value) {
    const auto uris = stateQuestions(value);
    if (!uris)
        return;
    Fuzz::require(uris->size() <= value.get("Parameters").get<picojson::array>().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(Fuzz::textOf(data, size));
    picojson::value value;
    Fuzz::require(OstrandHub::parseJson("\"" + OstrandHub::escapeJson(text) + "\"", value));
    Fuzz::require(value.get<std::string>() == text);

    picojson::value prefix;
    std::string error;
    const bool begins = OstrandHub::parseJsonPrefix(text, prefix, error);
    Fuzz::require(begins == error.empty());
    if (!OstrandHub::parseJson(text, value))
        return 0;
    Fuzz::require(begins && prefix == value);
    picojson::value again;
    Fuzz::require(OstrandHub::parseJson(value.serialize(), again) && again == value);
    checkNumbers(value);
    checkQuestions(value);
    return 0;
}

// Configuration files: slots have numbers that fit, a list of programs allows nothing that it does
// not hold, and no text ends the process.

#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "providers/render/RendererSlot.h"
#include "tests/fuzz/Input.h"

#include <string>
#include <unordered_set>

using namespace OstrandService;

namespace {

using Texts = std::unordered_set<std::string>;

/// The set that `key` of the file must lead to; `before` where the key is no list.
Texts expected(const picojson::value& value, const char* key, const Texts& before) {
    if (!value.is<picojson::object>() || !value.get(key).is<picojson::array>())
        return before;
    Texts texts;
    for (const picojson::value& element : value.get(key).get<picojson::array>()) {
        if (element.is<std::string>())
            texts.insert(element.get<std::string>());
    }
    return texts;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MessageLog::setLogPath("/dev/null/none");
    picojson::value value;
    if (!OstrandHub::parseJson(std::string(Fuzz::textOf(data, size)), value))
        return 0;
    const Texts programs{"fettle"};
    TranscoderJobDesc::cmd_whitelist = programs;
    TranscoderJobDesc::env_whitelist.clear();
    TranscoderJobDesc::initFrom(value, true);
    Fuzz::require(TranscoderJobDesc::cmd_whitelist ==
                  expected(value, "commandWhitelist", programs));
    Fuzz::require(TranscoderJobDesc::env_whitelist == expected(value, "envWhitelist", Texts()));
    for (const RendererSlot& slot : readRendererSlots(value))
        Fuzz::require(!slot.outputs.empty() && slot.outputs.front() == "framebuffer");
    return 0;
}

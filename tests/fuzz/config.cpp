// Configuration files: slots have ports that fit, and no text ends the process.

#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "providers/render/RendererSlot.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MessageLog::setLogPath("/dev/null/none");
    picojson::value value;
    if (!OstrandHub::parseJson(std::string(Fuzz::textOf(data, size)), value))
        return 0;
    TranscoderJobDesc::initFrom(value, true);
    for (const RendererSlot& slot : readRendererSlots(value))
        Fuzz::require(!slot.outputs.empty() && slot.outputs.front() == "framebuffer");
    return 0;
}

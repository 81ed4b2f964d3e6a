// Descriptions of jobs: what is accepted names allowed programs only, and has a name.

#include "platform/hub/DappleRenderJobDesc.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "platform/kestrel/CommandLine.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MessageLog::setLogPath("/dev/null/none");
    picojson::value value;
    if (!OstrandHub::parseJson(std::string(Fuzz::textOf(data, size)), value))
        return 0;
    TranscoderJobDesc::cmd_whitelist = {"fettle", "fettle.exe", "glimt"};
    TranscoderJobDesc job("/uploads");
    job.parse(value);
    Fuzz::require(job.valid != job.getUid().empty());
    if (job.valid) {
        for (const auto& command : job.commands)
            Fuzz::require(TranscoderJobDesc::cmd_whitelist.count(
                              Kestrel::CommandLine::program(command.line)) == 1);
    }
    DappleRenderJobDesc render;
    render.parse(value);
    return 0;
}

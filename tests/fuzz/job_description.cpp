// Descriptions of jobs: what is accepted names allowed programs and variables only, has a name, and
// is the same job again when it is read from the disk.

#include "platform/hub/DappleRenderJobDesc.h"
#include "platform/hub/Json.h"
#include "platform/hub/MessageLog.h"
#include "platform/hub/TranscoderJobDesc.h"
#include "platform/hub/UploadName.h"
#include "platform/kestrel/CommandLine.h"
#include "tests/fuzz/Input.h"

#include <string>

using namespace OstrandService;

namespace {

void checkAccepted(const TranscoderJobDesc& job, const picojson::value& value) {
    for (const auto& command : job.commands)
        Fuzz::require(TranscoderJobDesc::cmd_whitelist.count(
                          Kestrel::CommandLine::program(command.line)) == 1);
    for (const auto& variable : job.environment)
        Fuzz::require(TranscoderJobDesc::env_whitelist.count(variable.first) == 1);
    for (const char c : job.getUid())
        Fuzz::require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    const picojson::value& resource = value.get("resource");
    if (resource.is<std::string>() && isUpload(resource.get<std::string>()))
        Fuzz::require(job.resource.rfind('/') == std::string("/uploads").size());
}

/// The description as a restart finds it: written by the parser's own library.
void checkReload(const TranscoderJobDesc& job, const picojson::value& value) {
    picojson::value reread;
    Fuzz::require(OstrandHub::parseJson(value.serialize(), reread));
    TranscoderJobDesc again("/uploads");
    again.parse(reread);
    Fuzz::require(again.valid == job.valid && again.getUid() == job.getUid());
    if (!job.valid)
        return;
    Fuzz::require(again.JobKind == job.JobKind && again.resource == job.resource &&
                  again.environment == job.environment && again.cookies == job.cookies &&
                  again.replyType == job.replyType && again.commands.size() == job.commands.size());
    for (std::size_t i = 0; i < job.commands.size(); ++i)
        Fuzz::require(again.commands[i].line == job.commands[i].line);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MessageLog::setLogPath("/dev/null/none");
    picojson::value value;
    if (!OstrandHub::parseJson(std::string(Fuzz::textOf(data, size)), value))
        return 0;
    TranscoderJobDesc::cmd_whitelist = {"fettle", "fettle.exe", "glimt"};
    TranscoderJobDesc::env_whitelist = {"SCENE", "a"};
    TranscoderJobDesc job("/uploads");
    job.parse(value);
    Fuzz::require(job.valid != job.getUid().empty());
    if (job.valid)
        checkAccepted(job, value);
    checkReload(job, value);
    DappleRenderJobDesc render;
    render.parse(value);
    Fuzz::require(!render.valid || value.is<picojson::object>());
    return 0;
}

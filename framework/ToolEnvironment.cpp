#include "framework/ToolEnvironment.h"

#include "platform/hub/TranscoderJobDesc.h"
#include "platform/kestrel/CommandLine.h"

namespace OstrandService {

namespace {

bool reaches(const std::string& name, const std::string& program) {
    if (name == cookieVariable)
        return TranscoderJobDesc::cookieAwareCmds.count(program) != 0;
    if (name == deliveryHostVariable)
        return TranscoderJobDesc::env_whitelist.count(name) != 0;
    return true;
}

} // namespace

EnvironmentList toolEnvironment(const std::string& commandLine, const EnvironmentList& env) {
    EnvironmentList result;
    if (env.empty())
        return result;
    const std::string program = Kestrel::CommandLine::program(commandLine);
    for (const auto& variable : env) {
        if (reaches(variable.first, program))
            result.push_back(variable);
    }
    return result;
}

} // namespace OstrandService

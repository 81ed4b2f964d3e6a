#pragma once

#include "platform/hub/EnvironmentList.h"

#include <string>

namespace OstrandService {

/// What of a job's variables reaches the tool that `commandLine` starts. The client's cookies go
/// only to a program of `TranscoderJobDesc::cookieAwareCmds`, and the delivery host only where
/// `TranscoderJobDesc::env_whitelist` names it: a tool that does not ask for them learns neither.
EnvironmentList toolEnvironment(const std::string& commandLine, const EnvironmentList& env);

} // namespace OstrandService

#pragma once

#include "providers/legacy/LegacyJobState.h"

#include <cstdint>
#include <string>
#include <vector>

namespace OstrandService {

class JobRecord;

/// Runs one command line in `folder`, its output behind what is in the file `consoleFileName`
/// there (null: on the service's own standard output), and waits without a limit. Returns the job
/// state that it comes to: closed for exit code 0 or one that can't be read, else error.
LegacyJobState runProcess(const std::string& commandLine, const std::string& folder,
                          const char* consoleFileName);

/// Each argument with a blank behind it, the last one too. Nothing is quoted.
std::string joinArguments(const std::vector<std::string>& arguments);

/// Runs the joined arguments, which are split again like any command line.
LegacyJobState runArguments(const std::vector<std::string>& arguments, const std::string& folder,
                            const char* consoleFileName);

/// Runs the commands of a batch one after the other up to the first that fails, and keeps the job's
/// state and times in the store. True if the last one that ran succeeded. A batch without commands
/// stays in process for good.
bool runCommandBatch(const JobRecord& record, std::uint32_t id, const std::string& folder);

} // namespace OstrandService

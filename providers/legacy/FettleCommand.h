#pragma once

#include <string>
#include <vector>

namespace OstrandService {

class JobRecord;

/// The arguments that a job's operations stand for: `operations` is the comma-separated list of
/// their names. What is no name of an operation adds nothing.
std::vector<std::string> operationArguments(const std::string& operations);

/// The argument vector of the optimiser tool for a job, the tool's path first. Nothing is escaped:
/// what would add words to the command line has been refused with the description.
std::vector<std::string> fettleArguments(const JobRecord& record, const std::string& toolPath);

} // namespace OstrandService

#pragma once

#include <cstdint>
#include <string>

namespace OstrandService {

class JobRecord;

/// Runs a tool job: the optimiser tool and, where the job asks for a picture, the viewer on a scene
/// that shows the result. Keeps the job's state, command line and time in the store. True if the
/// optimiser succeeded; what becomes of the picture changes nothing.
bool runFettleJob(const JobRecord& record, std::uint32_t id, const std::string& folder);

} // namespace OstrandService

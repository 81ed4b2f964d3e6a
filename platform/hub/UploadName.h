#pragma once

#include <string>

namespace OstrandService {

/// True if a job's resource names an upload, `<name>@<uuid>`: what follows the last "@" has the
/// form of a UUID.
bool isUpload(const std::string& resource);

/// The name of an upload's file in the upload folder: the last path component of what stands before
/// the last "@", so that no resource leads out of the folder. Empty where `resource` is no upload
/// or that component is empty, "." or "..".
std::string uploadFileName(const std::string& resource);

} // namespace OstrandService

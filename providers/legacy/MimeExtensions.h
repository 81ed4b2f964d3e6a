#pragma once

#include <string>

namespace OstrandService {

/// The extension of the file that an upload of this media type becomes; empty for a type that is
/// not taken. The whole text is compared: one with a parameter behind it is another type. Any
/// thread.
std::string extensionForMime(const std::string& mediaType);

} // namespace OstrandService

#pragma once

#include <string>

namespace OstrandService {

/// The provider that the program's own file name asks for: the last component of `program`
/// (`argv[0]`) without the last ".exe" and without the first "OstrandService" in it; where nothing
/// is left, "TranscoderService".
std::string providerNameOf(const std::string& program);

} // namespace OstrandService

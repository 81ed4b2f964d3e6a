#pragma once

#include <cstdint>
#include <string>

namespace OstrandService {

/// Output formats of the transcoder, by number.
enum class OutputType : std::uint32_t { X3d = 0, X3db = 1, Html = 2, X3dv = 3, Gltf = 4, Glb = 5 };

/// What belongs to an output format.
struct FormatDef {
    std::string name;       ///< in job descriptions
    std::string toolSwitch; ///< argument of the optimiser tool
    std::string extension;  ///< of the result file, without the dot
};

} // namespace OstrandService

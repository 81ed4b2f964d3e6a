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

/// The row of an output format; that of the default one, x3d, for a number that is none. The result
/// lives as long as the process. Any thread may ask.
const FormatDef& formatOf(OutputType type);

/// Finds the format of this name, compared exactly; false, and `type` is left alone, where there is
/// none.
bool findFormat(const std::string& name, OutputType& type);

} // namespace OstrandService

#include "platform/hub/FormatDef.h"

#include <array>
#include <cstddef>

namespace OstrandService {

namespace {

using FormatTable = std::array<FormatDef, 6>;

/// The formats in the order of their numbers; never destroyed.
const FormatTable& table() {
    static const FormatTable* const formats = new FormatTable{{{"x3d", "--x3d", "x3d"},
                                                               {"x3db", "--x3db", "x3db"},
                                                               {"html", "--html", "html"},
                                                               {"x3dv", "--x3dv", "x3dv"},
                                                               {"gltf", "--gltf", "gltf"},
                                                               {"glb", "--glb", "glb"}}};
    return *formats;
}

} // namespace

const FormatDef& formatOf(OutputType type) {
    const auto index = static_cast<std::size_t>(type);
    return index < table().size() ? table()[index] : table()[0];
}

bool findFormat(const std::string& name, OutputType& type) {
    for (std::size_t i = 0; i < table().size(); ++i) {
        if (table()[i].name == name) {
            type = static_cast<OutputType>(i);
            return true;
        }
    }
    return false;
}

} // namespace OstrandService

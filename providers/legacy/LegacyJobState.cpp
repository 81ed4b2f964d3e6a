#include "providers/legacy/LegacyJobState.h"

#include <iterator>

namespace OstrandService {

std::string legacyStateName(LegacyJobState state) {
    static const char* const names[] = {"OPEN",     "IN PROCESS",          "CLOSED",
                                        "ERROR",    "MARKED FOR DELETION", "DELETED",
                                        "CANCELED", "TERMINATED",          "INVALID"};
    if (state < 0 || state >= static_cast<LegacyJobState>(std::size(names)))
        return "UNDEFINED";
    return names[state];
}

} // namespace OstrandService

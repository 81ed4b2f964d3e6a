#include "framework/JsonNumbers.h"

#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

namespace OstrandService {

std::string integerPart(double number) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out.precision(0);
    // The sum turns a negative zero into a plain one.
    out << std::fixed << std::trunc(number) + 0.0;
    return out.str();
}

std::int32_t cutToInt(double number) {
    using Limits = std::numeric_limits<std::int32_t>;
    // The casts of numbers outside the range, and of no number at all, are undefined.
    if (number >= Limits::max())
        return Limits::max();
    if (number <= Limits::min())
        return Limits::min();
    return std::isnan(number) ? 0 : static_cast<std::int32_t>(number);
}

} // namespace OstrandService

#pragma once

#include <cstdint>
#include <string>

namespace OstrandService {

/// The integer part of a JSON number in decimal, however large it is.
std::string integerPart(double number);

/// A JSON number cut towards zero; what no 32 bits hold becomes the nearest number that they do.
std::int32_t cutToInt(double number);

} // namespace OstrandService

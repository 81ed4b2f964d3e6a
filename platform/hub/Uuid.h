#pragma once

#include <string>

namespace OstrandHub {

/// True if `text` has the form of a UUID: 8-4-4-4-12 hexadecimal digits, in either case.
bool isUuid(const std::string& text);

/// A new random UUID in lower case.
std::string randomUuid();

} // namespace OstrandHub

#pragma once

#include <string>

namespace Config {

/// Conversions between values and their text form in a ParamBag.
class Base {
public:
    /// The text form of a value; for a text the value itself.
    static const std::string value2String(const std::string& value);

    /// The value of `text`, or `fallback` where `text` is null.
    static const std::string string2Value(const char* text, const std::string& fallback);
};

} // namespace Config

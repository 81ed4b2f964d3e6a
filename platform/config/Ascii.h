#pragma once

#include <string>

/// Characters of protocols and formats, which are ASCII whatever the locale says.
namespace Config {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// `c` in lower case; what is no capital letter stays.
constexpr char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lowerCase(std::string text) {
    for (char& c : text)
        c = lowerCase(c);
    return text;
}

/// The value of a hexadecimal digit of either case; -1 for another character.
constexpr int hexValue(char c) {
    if (isDigit(c))
        return c - '0';
    const char lower = lowerCase(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace Config

#pragma once

#include <picojson.h>
#include <string>

namespace OstrandHub {

/// True if `text` is one JSON value with nothing but white space around it; the value goes to
/// `out`, which is left alone otherwise. Text too deep (100 levels) or with a number out of range
/// is no JSON. Throws nothing.
bool parseJson(const std::string& text, picojson::value& out);

/// Reads one JSON value from the beginning of `text`; what stands behind it is not looked at. False
/// where there is none: `error` then says why, "syntax error at line N near: " and the rest of the
/// line for a malformed one. Throws nothing.
bool parseJsonPrefix(const std::string& text, picojson::value& out, std::string& error);

/// The text between the quotes of a JSON string, with what JSON asks for escaped.
std::string escapeJson(const std::string& text);

} // namespace OstrandHub

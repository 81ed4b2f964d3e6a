#pragma once

#include <string>

/// Percent-encodes every byte but the unreserved ones of RFC 3986 (letters, digits, "-._~").
std::string url_encode(const std::string& text);

/// Undoes percent-encoding, once. A "+" stays a plus, a malformed escape stays as it is.
std::string url_decode(const std::string& text);

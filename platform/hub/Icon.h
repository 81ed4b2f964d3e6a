#pragma once

namespace OstrandHub {

/// Size of the icon in bytes.
constexpr unsigned long iconSize = 13752;

/// The hub's icon, `iconSize` bytes of a multi-size icon file; holds zero bytes.
extern const char* const ostrandHub_icon_col_sans_ico;

} // namespace OstrandHub

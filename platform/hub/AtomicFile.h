#pragma once

#include <string>

namespace OstrandHub {

/// Writes a file that appears whole: the text goes to a temporary file in the same folder, which
/// then takes the place of the file, so that no reader, and no restart after a sudden end, ever
/// meets half of it. Two threads may write one path at a time; one of the texts stays. False if it
/// could not be written; what was there before is then still there. Nothing is forced onto the
/// disk: a loss of power may take the newest files with it.
bool writeFileAtomically(const std::string& path, const std::string& text);

} // namespace OstrandHub

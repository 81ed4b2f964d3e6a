#pragma once

#include <string>

namespace OstrandHub {

/// Writes a file that appears whole: the text goes to a temporary file in the same folder, which
/// then takes the place of the file, so that no reader, and no restart after a sudden end, ever
/// meets half of it. Two threads may write one path at a time; one of the texts stays. False if it
/// could not be written; what was there before is then still there. Nothing is forced onto the
/// disk: a loss of power may take the newest files with it.
bool writeFileAtomically(const std::string& path, const std::string& text);

/// Writes `text` over a file of the same size, in place and with one call. Meant for texts that
/// differ in one byte: whenever the process ends, the file then holds the one or the other. False,
/// and nothing is written, where there is no regular file of this size.
bool overwriteFile(const std::string& path, const std::string& text);

} // namespace OstrandHub

#pragma once

#include <string>

namespace OstrandHub {

/// Reads a whole file into `out`. False, and `out` is empty, if it can't be opened or read, or is
/// no regular file.
bool getFileContents(const char* path, std::string& out);

/// The folder of the hub's data files: `OSTRANDHUB_DATA` if set and not empty, else
/// `$XDG_DATA_HOME/ostrandhub`, else `$HOME/.local/share/ostrandhub`, else "/var/lib/ostrandhub".
/// It need not exist.
std::string getHubDataPath();

} // namespace OstrandHub

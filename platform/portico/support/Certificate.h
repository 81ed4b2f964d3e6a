#pragma once

#include <string>

namespace Portico::Support {

/// Writes a new self-signed certificate for this machine and its key as PEM files; the key with a
/// pass phrase where one is given. Returns false where that fails.
bool writeCertificate(const std::string& certFile, const std::string& keyFile,
                      const std::string& passPhrase = "");

} // namespace Portico::Support

#pragma once

#include <string>

namespace OstrandService {

/// A file as a result server sends it: regular files only, opened without blocking, so that a pipe
/// that a tool left in its folder stops no thread. Nothing here throws but std::bad_alloc.
class ResultFile {
public:
    /// Reads the whole file into `body`. False, and `body` is empty, where it can't be read.
    static bool read(const std::string& path, std::string& body);

    /// True if the file could be read.
    static bool isReadable(const std::string& path);
};

} // namespace OstrandService

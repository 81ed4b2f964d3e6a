#pragma once

#include <string>

namespace Portico::ProtocolHTTP {
class Reply;
}

namespace OstrandService {

/// A file as a result server sends it: regular files only, opened without blocking, so that a pipe
/// that a tool left in its folder stops no thread. Nothing here throws: a file that
/// memory does not hold can't be read.
class ResultFile {
public:
    /// Reads the whole file into `body`. False, and `body` is empty, where it can't be read.
    static bool read(const std::string& path, std::string& body);

    /// Answers a request for the file `path`: 200 with its content, or for a HEAD without, and the
    /// type that its name tells, or 404.
    static void answer(bool withContent, const std::string& path,
                       Portico::ProtocolHTTP::Reply& reply);

    /// True if the file could be read.
    static bool isReadable(const std::string& path);
};

} // namespace OstrandService

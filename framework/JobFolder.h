#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace OstrandService {

/// Steps on a job's folder that the providers share. Nothing here throws.
class JobFolder {
public:
    /// Largest job id that is taken from a folder's name. It bounds the job table, which has a
    /// place for every id up to the highest.
    static constexpr std::int64_t maxId = 16777215;

    /// Makes the folder, one level, unless it exists, and writes ".meta" into it. Nothing is
    /// written where the folder can't be made.
    static void create(const std::string& path, const std::string& meta);

    /// The content of "console.txt" or another file for a page, as it is at the moment; empty
    /// where it can't be read.
    static std::string readText(const std::string& path);

    /// True if something of this name exists; false too where that can't be found out.
    static bool exists(const std::string& path);

    /// True if `path` is a folder, or a link to one.
    static bool isFolder(const std::string& path);
};

} // namespace OstrandService

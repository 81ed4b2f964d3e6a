#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace OstrandService {

/// Steps on a job's folder that the providers share. Nothing here throws, but for removeAll(), and
/// no failure to write is reported but that of the marker.
class JobFolder {
public:
    using Cookies = std::vector<std::pair<std::string, std::string>>;

    /// Largest job id that is taken from a folder's name. It bounds the job table, which has a
    /// place for every id up to the highest.
    static constexpr std::int64_t maxId = 16777215;

    /// Makes the folder, one level, unless it exists, and writes ".meta" into it. Nothing is
    /// written where the folder can't be made, and where the file can't, no new folder stays and
    /// none that stood there keeps another job's file.
    static void create(const std::string& path, const std::string& meta);

    /// Makes and removes the empty file ".partial", which tells that the job is unfinished. Both
    /// return whether it is now there, or gone: a run without it shows half of its results.
    static bool markPartial(const std::string& path);
    static bool clearPartial(const std::string& path);

    /// Writes the file "jobId": the id, "@" and the service's or provider's identifier.
    static void writeJobId(const std::string& path, std::uint32_t id, const std::string& service);

    /// Writes the file ".cookie", readable by the service's user alone: of each cookie the name and
    /// the value, on a line each.
    static void writeCookies(const std::string& path, const Cookies& cookies);

    /// Appends a text to the console file `path`.
    static void appendConsole(const std::string& path, const std::string& text);

    /// Removes, below the cache folder `cachePath`, each folder whose name is a number and that
    /// holds ".meta": the rest is no job's and stays. Tells each step on standard error. Throws
    /// where a folder can't be removed.
    static void removeAll(const std::string& cachePath);

    /// The content of "console.txt" or another file for a page, as it is at the moment; empty
    /// where it can't be read.
    static std::string readText(const std::string& path);

    /// True if something of this name exists; false too where that can't be found out.
    static bool exists(const std::string& path);

    /// False only if nothing of this name can be reached; true too where that can't be found out,
    /// as behind an error of the disk.
    static bool mayExist(const std::string& path);

    /// True if `path` is a folder, or a link to one.
    static bool isFolder(const std::string& path);
};

} // namespace OstrandService

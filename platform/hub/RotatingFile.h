#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace OstrandService {

/// A text file of lines that grows to a limit and is then kept as NAME.1.EXT, NAME.2.EXT and so on.
///
/// Opened at the first line and tried again at the next where that failed; a folder that is
/// missing is not made. A file that somebody moves or removes meanwhile is begun anew at the next
/// line, in a folder that is made again if it has gone too. Used by one thread at a time. No
/// operation throws.
class RotatingFile {
public:
    /// How much is kept.
    struct Limits {
        std::size_t bytes = std::size_t{10} * 1024 * 1024; ///< size at which the file is put aside
        std::size_t oldFiles = 5;                          ///< files kept beside the current one
    };

    /// Each line starts with the time, as in 2026-11-21T05:40:12.123Z, and `timeEnd`.
    /// `firstLine` is the first line of each file; none where it is empty.
    RotatingFile(std::string filePath, char timeEnd, std::string firstLine, Limits kept);
    ~RotatingFile();

    RotatingFile(const RotatingFile&) = delete;
    RotatingFile& operator=(const RotatingFile&) = delete;

    /// Appends a line and writes it through to the system. `text` holds no line end. False if it
    /// could not be written.
    bool write(const std::string& text);

    /// Why the last write failed; empty if it did not.
    const std::string& problem() const { return lastProblem; }

private:
    struct Sink;

    void open();
    void writeLine(const std::string& text);

    const std::string path;
    const char separator;
    const std::string header;
    const Limits limits;
    std::string lastProblem;
    std::unique_ptr<Sink> sink; ///< null while the file is not open
};

} // namespace OstrandService

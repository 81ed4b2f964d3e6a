#include "platform/hub/RotatingFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace OstrandService {

namespace {

/// Throws, with the reason, unless a regular file can be written at `path`. The sink itself would
/// make missing folders, try five times with pauses, and wait for a reader where a FIFO stands in
/// the way.
void checkWritable(const std::string& path) {
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0)
        throw std::runtime_error(std::strerror(errno));
    struct stat status {};
    const bool regular = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    ::close(fd);
    if (!regular)
        throw std::runtime_error("no regular file");
}

/// Which file of the system a path or an open file stands for.
struct FileIdentity {
    dev_t device = 0;
    ino_t number = 0;
};

/// Notes in `opened` which file is open, be it new or just put in the place of a full one, and
/// starts it with `header` if it is empty.
spdlog::file_event_handlers openWith(const std::string& header, FileIdentity& opened) {
    spdlog::file_event_handlers handlers;
    handlers.after_open = [header, &opened](const spdlog::filename_t&, std::FILE* file) {
        struct stat status {};
        if (::fstat(::fileno(file), &status) != 0)
            return;
        opened = {status.st_dev, status.st_ino};
        if (header.empty() || status.st_size != 0)
            return;
        std::fputs((header + "\n").c_str(), file);
        std::fflush(file);
    };
    return handlers;
}

} // namespace

struct RotatingFile::Sink {
    Sink(const std::string& path, char separator, const std::string& header, Limits limits)
        : file(path, limits.bytes, limits.oldFiles, false, openWith(header, opened)) {
        const std::string pattern = std::string("%Y-%m-%dT%H:%M:%S.%eZ") + separator + "%v";
        file.set_formatter(std::make_unique<spdlog::pattern_formatter>(
            pattern, spdlog::pattern_time_type::utc, "\n"));
    }

    /// True if `name` is not the open file any more.
    bool isCutOff(const std::string& name) const {
        struct stat status {};
        return ::stat(name.c_str(), &status) != 0 || status.st_dev != opened.device ||
               status.st_ino != opened.number;
    }

    FileIdentity opened; ///< before `file`, which sets it
    spdlog::sinks::rotating_file_sink_st file;
};

RotatingFile::RotatingFile(std::string filePath, char timeEnd, std::string firstLine, Limits kept)
    : path(std::move(filePath)), separator(timeEnd), header(std::move(firstLine)), limits(kept) {}

RotatingFile::~RotatingFile() = default;

void RotatingFile::open() {
    if (sink && sink->isCutOff(path)) {
        sink.reset();
        std::error_code ignored;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    }
    if (sink)
        return;
    checkWritable(path);
    sink = std::make_unique<Sink>(path, separator, header, limits);
}

void RotatingFile::writeLine(const std::string& text) {
    sink->file.log(spdlog::details::log_msg(spdlog::string_view_t(), spdlog::level::info,
                                            spdlog::string_view_t(text.data(), text.size())));
    sink->file.flush();
}

bool RotatingFile::write(const std::string& text) {
    lastProblem.clear();
    try {
        open();
        writeLine(text);
        return true;
    } catch (const std::exception& error) {
        // Full disk, or the folder went away at a rotation: begin anew with the next line.
        sink.reset();
        lastProblem = error.what();
        return false;
    }
}

} // namespace OstrandService

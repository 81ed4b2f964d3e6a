#include "platform/hub/RotatingFile.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace OstrandService {

namespace {

/// True if a regular file can be written at `path`. The sink itself would make missing folders,
/// try five times with pauses, and wait for a reader where a FIFO stands in the way.
bool canWrite(const std::string& path) {
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    struct stat status {};
    const bool regular = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    ::close(fd);
    return regular;
}

/// Starts a file that is empty with `header`, be it new or just put in the place of a full one.
spdlog::file_event_handlers startWith(const std::string& header) {
    spdlog::file_event_handlers handlers;
    if (!header.empty()) {
        handlers.after_open = [header](const spdlog::filename_t&, std::FILE* file) {
            struct stat status {};
            if (::fstat(::fileno(file), &status) != 0 || status.st_size != 0)
                return;
            std::fputs((header + "\n").c_str(), file);
            std::fflush(file);
        };
    }
    return handlers;
}

} // namespace

struct RotatingFile::Sink {
    Sink(const std::string& path, char separator, const std::string& header, Limits limits)
        : file(path, limits.bytes, limits.oldFiles, false, startWith(header)) {
        const std::string pattern = std::string("%Y-%m-%dT%H:%M:%S.%eZ") + separator + "%v";
        file.set_formatter(std::make_unique<spdlog::pattern_formatter>(
            pattern, spdlog::pattern_time_type::utc, "\n"));
    }

    spdlog::sinks::rotating_file_sink_st file;
};

RotatingFile::RotatingFile(std::string filePath, char timeEnd, std::string firstLine, Limits kept)
    : path(std::move(filePath)), separator(timeEnd), header(std::move(firstLine)), limits(kept) {}

RotatingFile::~RotatingFile() = default;

void RotatingFile::open() {
    if (!sink && canWrite(path))
        sink = std::make_unique<Sink>(path, separator, header, limits);
}

bool RotatingFile::write(const std::string& text) {
    try {
        open();
        if (!sink)
            return false;
        sink->file.log(spdlog::details::log_msg(spdlog::string_view_t(), spdlog::level::info,
                                                spdlog::string_view_t(text.data(), text.size())));
        sink->file.flush();
        return true;
    } catch (...) {
        // Full disk, or the folder went away at a rotation: begin anew with the next line.
        sink.reset();
        return false;
    }
}

} // namespace OstrandService

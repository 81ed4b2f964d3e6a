#include "framework/ResultFile.h"

#include "platform/hub/HubFiles.h"
#include "platform/portico/MimeTypes.h"
#include "platform/portico/ProtocolHTTP.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OstrandService {

bool ResultFile::read(const std::string& path, std::string& body) {
    return OstrandHub::getFileContents(path.c_str(), body);
}

void ResultFile::answer(bool withContent, const std::string& path,
                        Portico::ProtocolHTTP::Reply& reply) {
    reply.body().clear();
    if (withContent ? !read(path, reply.body()) : !isReadable(path)) {
        reply.setCode(404);
        return;
    }
    reply.setCode(200);
    reply.header().setParam("Content-Type", Portico::MimeTypes::the().identify(path).c_str());
}

bool ResultFile::isReadable(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0)
        return false;
    struct stat status = {};
    const bool regular = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
    ::close(file);
    return regular;
}

} // namespace OstrandService

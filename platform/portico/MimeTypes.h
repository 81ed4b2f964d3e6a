#pragma once

#include <string>

namespace Portico {

/// Content types by the ending of a file's name. Read-only after construction, for any thread.
class MimeTypes {
public:
    /// The one instance, made on first use and never destroyed.
    static MimeTypes& the();

    /// The type of `fileName`, a name or a path, by its extension without case: the table of the
    /// 3D formats and the common web types first, then the system's own (/etc/mime.types), else
    /// "application/octet-stream". The result lives as long as the process.
    const std::string& identify(const std::string& fileName) const;

private:
    MimeTypes();

    struct Tables;
    const Tables* tables; ///< never freed, like the instance
};

} // namespace Portico

#pragma once

#include <string>

namespace OstrandService {

/// A running service's mark on a folder, by which a second service on the same one learns of the
/// first. It goes with the object, and with the process however that ends. Used by one thread.
class FolderClaim {
public:
    FolderClaim() = default;
    ~FolderClaim();
    FolderClaim(const FolderClaim&) = delete;
    FolderClaim& operator=(const FolderClaim&) = delete;

    /// Marks the folder, and leaves the one that was marked before. False if another object or
    /// process holds a mark on it; true also where that can't be found out.
    bool take(const std::string& path);

private:
    void release();

    int folder = -1; ///< open while it is marked
};

} // namespace OstrandService

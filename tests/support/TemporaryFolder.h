#pragma once

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <string>

namespace Support {

/// A new folder of a test's own, with everything in it removed at the end.
class TemporaryFolder {
public:
    TemporaryFolder()
        : root(boost::filesystem::temp_directory_path() /
               boost::filesystem::unique_path("ostrand-test-%%%%-%%%%-%%%%")) {
        boost::filesystem::create_directories(root);
    }
    ~TemporaryFolder() {
        boost::system::error_code error;
        boost::filesystem::remove_all(root, error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// The folder's path.
    std::string path() const { return root.string(); }

    /// The path of `name` in the folder.
    std::string path(const std::string& name) const { return (root / name).string(); }

    /// Makes a folder below this one, and those above it.
    std::string makeFolder(const std::string& name) const {
        boost::filesystem::create_directories(root / name);
        return path(name);
    }

    /// Writes a file below this folder; the folders above it are made.
    std::string write(const std::string& name, const std::string& text) const {
        boost::filesystem::create_directories((root / name).parent_path());
        std::ofstream(path(name), std::ios::binary | std::ios::trunc) << text;
        return path(name);
    }

    bool has(const std::string& name) const { return boost::filesystem::exists(root / name); }

    /// The whole text of a file below this folder; "(no file)" where there is none.
    std::string read(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        if (!in)
            return "(no file)";
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    boost::filesystem::path root;
};

} // namespace Support

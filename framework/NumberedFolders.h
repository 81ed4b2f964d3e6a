#pragma once

#include "framework/JobFolder.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <string>
#include <utility>
#include <vector>

namespace OstrandService {

/// The folders below `path` whose names are numbers of the type, with their paths, in the order of
/// the numbers, so that a reload is repeatable. A sign in front counts as part of a number. Throws
/// where the folder can't be read to its end: ids of folders that were missed would be given again.
template <typename Number>
std::vector<std::pair<Number, std::string>> numberedFolders(const std::string& path) {
    namespace fs = boost::filesystem;
    std::vector<std::pair<Number, std::string>> folders;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        Number number = 0;
        boost::system::error_code error;
        if (boost::conversion::try_lexical_convert(entry.path().filename().string(), number) &&
            fs::is_directory(entry.status(error)))
            folders.emplace_back(number, entry.path().string());
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

} // namespace OstrandService

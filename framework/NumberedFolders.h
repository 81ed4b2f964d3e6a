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
/// the numbers, so that a reload is repeatable. A sign in front counts as part of a number.
template <typename Number>
std::vector<std::pair<Number, std::string>> numberedFolders(const std::string& path) {
    namespace fs = boost::filesystem;
    std::vector<std::pair<Number, std::string>> folders;
    boost::system::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        Number number = 0;
        if (boost::conversion::try_lexical_convert(entry->path().filename().string(), number) &&
            fs::is_directory(entry->status(error)))
            folders.emplace_back(number, entry->path().string());
        error.clear();
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

} // namespace OstrandService

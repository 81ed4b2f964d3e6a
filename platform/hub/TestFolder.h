#pragma once

#include "platform/hub/MessageLog.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// A folder of a test's own, removed with what is in it at the end.
class TestFolder {
public:
    TestFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "hubtest-XXXXXX").string();
        if (!::mkdtemp(&name[0]))
            throw std::runtime_error("no folder for the test");
        folder = name;
    }
    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::string& path() const { return folder; }
    std::string path(const std::string& name) const { return folder + "/" + name; }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    std::string read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

    bool has(const std::string& name) const { return std::filesystem::exists(path(name)); }

    /// Number of files and folders in it.
    std::size_t size() const {
        std::size_t count = 0;
        for (auto entry = std::filesystem::directory_iterator(folder); entry != end(entry); ++entry)
            ++count;
        return count;
    }

private:
    std::string folder;
};

/// The log of a test, in a folder of its own.
class TestLog {
public:
    TestLog() { OstrandService::MessageLog::setLogPath(folder.path()); }
    ~TestLog() { OstrandService::MessageLog::setLogPath(""); }
    TestLog(const TestLog&) = delete;
    TestLog& operator=(const TestLog&) = delete;

    /// The texts logged so far, without their times.
    std::vector<std::string> lines() const {
        constexpr std::size_t timeSize = 25;
        std::vector<std::string> texts;
        std::istringstream log(folder.read("messages.log"));
        for (std::string line; std::getline(log, line);)
            texts.push_back(line.size() < timeSize ? "?" + line : line.substr(timeSize));
        return texts;
    }

    const TestFolder folder;
};

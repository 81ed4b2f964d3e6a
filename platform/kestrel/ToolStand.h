#pragma once

#include "platform/kestrel/Thread.h"
#include "platform/kestrel/ToolProcess.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace Kestrel {

/// A folder of a test's own with stand-in tools in it, and what they leave behind there.
class ToolStand : public testing::Test {
public:
    ToolStand() {
        std::string name = (std::filesystem::temp_directory_path() / "tool-XXXXXX").string();
        if (::mkdtemp(name.data()))
            folder = name;
    }
    ~ToolStand() override { std::filesystem::remove_all(folder); }
    ToolStand(const ToolStand&) = delete;
    ToolStand& operator=(const ToolStand&) = delete;

    std::string path(const std::string& name) const { return folder + "/" + name; }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

    std::string read(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    /// Makes a file that may be executed; returns its path.
    std::string program(const std::string& name, const std::string& text) const {
        write(name, text);
        std::filesystem::permissions(path(name), std::filesystem::perms::owner_all);
        return path(name);
    }

    /// Makes a shell script; returns its path.
    std::string script(const std::string& name, const std::string& body) const {
        return program(name, "#!/bin/sh\n" + body + "\n");
    }

    /// How `commandLine` is started by tests that need nothing special.
    ToolStart plan(const std::string& commandLine) const {
        return {commandLine, folder, path("console.txt"), {}};
    }

    std::unique_ptr<ToolProcess> start(const std::string& commandLine) const {
        return ToolProcess::start(plan(commandLine));
    }

    /// Runs a tool to its end: its exit code, or -1 where it can't be started.
    int run(const ToolStart& what) const {
        const std::unique_ptr<ToolProcess> tool = ToolProcess::start(what);
        if (!tool)
            return -1;
        const int code = tool->waitForEnd().value_or(-2);
        tool->reap();
        return code;
    }
    int run(const std::string& commandLine) const { return run(plan(commandLine)); }

    std::string console() const { return read("console.txt"); }

    /// True as soon as `condition` holds; false if it does not within half a minute.
    template <typename Condition>
    static bool becomesTrue(Condition condition) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit)
                return false;
            Thread::sleep(2);
        }
        return true;
    }

    /// The process id that a script writes to the file `name` as a whole line; 0 if it does not.
    pid_t readPid(const std::string& name) const {
        const auto complete = [&] { return read(name).find('\n') != std::string::npos; };
        return becomesTrue(complete) ? std::atoi(read(name).c_str()) : 0;
    }

    /// False too for a dead process that its new parent has not released yet.
    static bool isAlive(pid_t pid) {
        std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
        std::string text;
        std::getline(in, text);
        const std::string::size_type nameEnd = text.rfind(") ");
        return nameEnd != std::string::npos && text[nameEnd + 2] != 'Z' && text[nameEnd + 2] != 'X';
    }

    std::string folder;
};

} // namespace Kestrel

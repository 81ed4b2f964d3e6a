#pragma once

#include <gtest/gtest.h>
#include <string>

namespace Support {

/// Catches what the process writes to standard output and standard error, by stdio and by streams,
/// until the texts are asked for.
class OutputCapture {
public:
    OutputCapture() {
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
    }
    ~OutputCapture() { end(); }
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    /// The text on standard output so far; ends the capture.
    std::string output() {
        end();
        return outText;
    }

    /// The text on standard error so far; ends the capture.
    std::string errors() {
        end();
        return errorText;
    }

private:
    void end() {
        if (ended)
            return;
        ended = true;
        outText = ::testing::internal::GetCapturedStdout();
        errorText = ::testing::internal::GetCapturedStderr();
    }

    bool ended = false;
    std::string outText;
    std::string errorText;
};

} // namespace Support

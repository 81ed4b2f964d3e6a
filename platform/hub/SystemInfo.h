#pragma once

#include <memory>

/// Recorder of the system's load: samples of the kernel's own figures, kept in
/// `<log path>/systeminfo.csv`, a row a sample, rotated like the log. Used by the main thread
/// alone.
class SystemInfo {
public:
    SystemInfo();
    ~SystemInfo();
    SystemInfo(const SystemInfo&) = delete;
    SystemInfo& operator=(const SystemInfo&) = delete;

    /// Takes a sample.
    void update();

    /// Appends the last sample to the CSV log. The folder is that of the MessageLog at the first
    /// call; a log that can't be opened is silent.
    void update_csv_log();

    /// Ends the CSV log. A second call does nothing.
    void close();

private:
    struct State;
    std::unique_ptr<State> state;
};

// log_sinks.h: where log lines go. For log.cpp, for programs that set the log up otherwise, and for tests.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/host/log_capture.h"

namespace ksw::host {

/// What the environment decides about the log.
struct LogSettings {
    /// Path of the journal's socket; there may be nothing there.
    std::string journalPath;
    /// Every level is on, and goes to standard error as well.
    bool isVerbose = false;
    bool showsPrivate = false;
    /// Borrowed.
    int standardError = 2;

    /// From KESTRELWOOD_LOG, KESTRELWOOD_LOG_PRIVATE and the host root.
    static LogSettings fromEnvironment();
};

/// Replaces the settings from here on; lines being written meanwhile may still follow the old ones, which are kept
/// for them. Not for frequent use.
void setLogSettings(const LogSettings& settings);

/// Hands a finished line to the captures and the sinks. Without settings yet, reads the environment first.
void routeLogLine(const LogLine& line);

/// Lines that no sink took in time.
std::uint64_t droppedLogLines();

}  // namespace ksw::host

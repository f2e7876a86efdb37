// log_capture.h: sees log lines as they are written, beside the sinks. For tests.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/log.h"

namespace ksw::host {

/// One line, in both forms.
struct LogLine {
    LogLevel level = LogLevel::Notice;
    std::string category;
    std::string text;        ///< The text as in the program, placeholders and all.
    std::string publicForm;  ///< Private values are `<private>`.
    std::string fullForm;
    std::string activity;  ///< The innermost activity's name; empty outside of any.
    std::uint64_t activityId = 0;
};

/// What a capture has collected.
struct CapturedLines;

/// Collects the lines of all threads while it lives; every level is on meanwhile. Safe from any thread;
/// several may live at once, and each sees every line.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The lines so far, oldest first.
    std::vector<LogLine> lines() const;
    /// Those at a level, full form only.
    std::vector<std::string> at(LogLevel level) const;
    /// The number of lines whose full form is `fullForm`.
    std::size_t count(std::string_view fullForm) const;
    void clear();

private:
    std::shared_ptr<CapturedLines> lines_;
};

}  // namespace ksw::host

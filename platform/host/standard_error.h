// standard_error.h: log lines for people who watch a program run.
#pragma once

#include <string_view>

#include "platform/host/log_capture.h"

namespace ksw::host {

/// Writes `kestrelwood[category] level (activity): message` as one line without control characters, cut to
/// `limits::kLogFieldMax` bytes. Waits `limits::kLogSendMilliseconds` at most for a reader that does not keep up.
/// False when the line was not written whole. A reader that is gone raises no signal.
bool writeToStandardError(int fd, const LogLine& line, std::string_view message);

}  // namespace ksw::host

// journal.h: hands finished log lines to the host's journal, over its native socket: one datagram a line, of
// "NAME=value" fields. Does not decide what is logged: that is log_sinks.h.
#pragma once

#include <string>
#include <string_view>

#include "platform/base/unique_fd.h"
#include "platform/host/log_capture.h"

namespace ksw::host {

/// Appends one field in the journal's form. A value with a line break is written with its length in front; one
/// over `limits::kLogFieldMax` bytes is cut. `name` is upper-case letters and underscores.
void appendJournalField(std::string& record, std::string_view name, std::string_view value);

/// A road to the journal. Safe from any thread.
class Journal {
public:
    /// Connects to the socket at `path`; when there is none, there is no journal.
    explicit Journal(std::string path);

    /// Whether there was a journal when this object was made.
    bool isThere() const { return static_cast<bool>(fd_); }

    /// Sends one line, whole or not at all; waits `limits::kLogSendMilliseconds` at most. Connects anew when
    /// the journal was restarted. False when the journal did not take it.
    bool write(const LogLine& line, std::string_view message) const;

private:
    /// A connection of its own; empty when the journal is not there.
    UniqueFd connect() const;
    /// Puts a new connection in the place of the old one, under the same descriptor, so that no sender needs a
    /// lock that a fork could leave locked.
    bool reconnect() const;

    std::string path_;  // constant after construction
    UniqueFd fd_;       // the number is constant after construction
};

}  // namespace ksw::host

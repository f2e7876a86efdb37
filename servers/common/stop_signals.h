// stop_signals.h: how a server learns that it is to end: SIGTERM and SIGINT, read from a descriptor.
#pragma once

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "servers/common/notifier.h"

namespace ksw::servers {

/// The signals that end a server. One thread.
class StopSignals {
public:
    /// Blocks the signals, and SIGPIPE, for the calling thread and all that it starts later: call it before any.
    static Result<StopSignals> block();

    /// Waits until one of the signals has come; meanwhile says by the notifier that the service is alive.
    /// Error: the kernel denies the waiting.
    Status wait(const Notifier& notifier);

private:
    explicit StopSignals(UniqueFd fd) : fd_(std::move(fd)) {}

    UniqueFd fd_;
};

}  // namespace ksw::servers

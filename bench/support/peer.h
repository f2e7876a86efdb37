// peer.h: the least that a server does: reads a request, writes its answer.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include <kestrelwood/values/data.h>

#include "bench/support/child_process.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/frame.h"

namespace ksw::bench {

/// Puts the frame that answers a request into the buffer.
using AnswerFrame = std::function<void(const ipc::Frame& request, Data& buffer)>;

/// A bare loop that answers, for one connection at a time, in a child process that listens in the host root.
std::unique_ptr<ChildProcess> peerThat(std::string_view service, ipc::Domain domain, const AnswerFrame& answer);

/// Something to wait for, until a child process is ready. Made before the child is.
class Readiness {
public:
    Readiness();
    void say() const;
    void await();

private:
    int ends_[2]{};
};

}  // namespace ksw::bench

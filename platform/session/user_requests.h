// user_requests.h: requests to the services of users, who may stop their processes. A service that does not answer
// keeps its caller for a bounded time, and one thread of this process for as long as it likes.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <kestrelwood/values/audit_token.h>

#include "platform/base/result.h"

namespace ksw::session {

/// Any thread. For each user at most one request is under way.
class UserRequests {
public:
    using Request = std::function<Status()>;

    /// No caller is kept longer than `patience`.
    explicit UserRequests(std::chrono::milliseconds patience);
    UserRequests(const UserRequests&) = delete;
    UserRequests& operator=(const UserRequests&) = delete;

    /// Runs `request`, which asks a service of `uid`, on a thread of its own, and waits for it: what it gives.
    /// Interrupted when it has not ended in time, or an earlier one has not; at once when an earlier one's time is
    /// over. A request that is late goes on and its end is told to nobody, so it owns what it uses.
    Status run(Uid uid, Request request);

private:
    struct Inside;

    const std::chrono::milliseconds patience_;
    const std::shared_ptr<Inside> inside_;  // also the threads', which may outlive this
};

}  // namespace ksw::session

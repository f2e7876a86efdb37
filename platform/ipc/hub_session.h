// hub_session.h: one connection of an observing process to a hub, from the dialling to its end.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/base/unique_fd.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/notifications.h"

namespace ksw::ipc {

/// Wakes the one thread that waits for its descriptor. Any thread rings.
class Bell {
public:
    /// Error: the kernel denies the descriptor.
    static Result<std::shared_ptr<Bell>> create();
    explicit Bell(UniqueFd fd) : fd_(std::move(fd)) {}

    int fd() const { return fd_.get(); }
    void ring();
    /// The waiting thread's: makes the descriptor unreadable again.
    void silence();

private:
    const UniqueFd fd_;
};

/// Never dials twice: a later hub is a later session, so that no name is taken for observed that another hub was
/// told. Any thread may call `standing` and `end`; the rest is for one thread, which waits for the session's
/// descriptor beside its own. No call blocks for longer than the hub takes for a request, or until another thread
/// calls `end`.
class HubSession {
public:
    /// Nothing is dialled yet.
    explicit HubSession(Domain domain);

    /// What the hub makes of a name.
    enum class Standing : std::uint8_t {
        Untold,    ///< It was not told.
        Observed,  ///< What is posted from now on comes.
        Refused,   ///< It does not take the name, and never will.
    };
    Standing standing(const std::string& name);
    /// Tells the hub a name, unless it was told. Error: the session is of no use any more. A name that the hub
    /// refuses for good is none: a line in the log says so.
    Status observe(const std::string& name);
    /// Asks for the next notification; again when one was taken.
    void askNext();
    /// What is readable when something has come, or the hub has gone; -1 before the first name was told.
    int fd() { return connection_.answersFd(); }
    /// Reads what has come; blocks until something has.
    void read() { connection_.readAnswers(); }
    /// The notification that was asked for, or why none will come any more; absent while neither has been read.
    std::optional<Result<Notification>> takeNext();
    /// Ends the session; calls that block return.
    void end() { connection_.end(); }

private:
    std::mutex mutex_;  // guards told_
    std::map<std::string, Standing> told_;
    std::optional<Result<Notification>> next_;  // the one thread's
    Connection connection_;                     // last: its handlers use the rest
};

}  // namespace ksw::ipc

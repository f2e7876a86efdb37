// notification_hub.h: hands a domain's distributed notifications to whoever observes them.
// Owns what each observer has not taken yet. Does not listen: that is the server's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <sys/types.h>

#include "platform/ipc/connection.h"
#include "platform/ipc/dispatcher.h"
#include "platform/ipc/notifications.h"

namespace ksw::ipc {

/// Whom a post tells.
enum class Audience : std::uint8_t {
    Everybody,  ///< The process that is the cause last.
    Others,     ///< Everybody but that process.
    Cause,      ///< That process.
};

/// The hub of one domain. Any thread may call anything. Nothing here waits for an observer: each has at most one
/// notification of a name pending, and one that is posted meanwhile takes its place.
class NotificationHub {
public:
    /// `domain` decides who may post from outside: uid 0 (or the host root's owner as of now), and in a session its
    /// own uid. `coalesce` may make one of a pending notification and a newer one; without it the newer one stays.
    explicit NotificationHub(Domain domain, Coalesce coalesce = nullptr);
    ~NotificationHub();
    NotificationHub(const NotificationHub&) = delete;
    NotificationHub& operator=(const NotificationHub&) = delete;

    /// The methods of the service `kNotifyService`; the hub outlives the server that serves them.
    Dispatcher service();

    /// Posts in the name of this process. One that is larger than limits::kNotificationMax, or has no name, is
    /// dropped with a line in the log. Where there is no memory for it, or for making it one with an older one,
    /// observers are told the name without user information: that anything may have happened.
    /// `cause`: the process that made what is told; it knows already, and is told after all others. 0: none did.
    void post(const Notification& notification, pid_t cause = 0, Audience audience = Audience::Everybody);

    /// Connections that observe something or wait for it now.
    std::size_t observers() const;

private:
    class Inside;
    std::shared_ptr<Inside> inside_;
};

}  // namespace ksw::ipc

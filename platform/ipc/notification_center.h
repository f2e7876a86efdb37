// notification_center.h: the distributed notifications that this process observes.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "platform/ipc/connection.h"
#include "platform/ipc/notifications.h"

namespace ksw::ipc {

/// One domain's notifications, as this process observes them. Any thread may call anything.
///
/// The first observation starts the one thread on which all handlers run, one after the other. It connects to the
/// domain's hub; when there is none, or when the hub goes away, it waits for one to come to the run directory. Only
/// that thread waits for a hub. Whatever was posted while the hub did not know a name may have been missed; so an
/// observation is told once without user information when a hub has learned its name: at first, and after every
/// hub that went away. After a fork the child's first observation starts a thread and a connection of its own; the
/// parent's observations tell the child nothing.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    /// Observes for as long as it lives. Once its destructor is through, its handler neither runs nor will: it
    /// waits for one that runs, unless it is that handler which destroys it.
    class Observation {
    public:
        Observation() = default;
        Observation(Observation&& other) noexcept;
        Observation& operator=(Observation&& other) noexcept;
        Observation(const Observation&) = delete;
        Observation& operator=(const Observation&) = delete;
        ~Observation();

    private:
        friend class NotificationCenter;
        struct Entry;
        explicit Observation(std::shared_ptr<Entry> entry);
        void end();
        std::shared_ptr<Entry> entry_;
    };

    /// The process's own; never destroyed.
    static NotificationCenter& of(Domain domain);

    /// Calls `handler` for each notification of the name from now on, and first of all once without user
    /// information when the hub has learned the name, unless the hub knows it already. `coalesce` as for a hub, for
    /// what comes while the centre is suspended. The handler must throw nothing but std::bad_alloc: then the
    /// observation is told later that it may have missed something. Returns at once, whatever the hub does. Throws
    /// std::invalid_argument for a name that has not 1 to limits::kSelectorMax bytes. A name that the hub does not
    /// take any more (limits::kNotificationNamesMax) is a line in the log.
    [[nodiscard]] Observation observe(std::string name, Handler handler, Coalesce coalesce = nullptr);

    /// While suspended no handler is called; for each observation one notification is kept, and told on going on.
    /// A handler that runs already may still be running when this returns.
    void setSuspended(bool suspended);

    explicit NotificationCenter(Domain domain);
    /// Ends the thread. Waits for a handler that runs, unless it is that handler which destroys the centre. No
    /// other thread may be in `observe`.
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

private:
    class Inside;
    struct State;
    Inside& current();

    const Domain domain_;
    std::atomic<State*> state_{nullptr};  // owned; null before the first use, replaced in a forked child
};

}  // namespace ksw::ipc

// notification_center.h: the distributed notifications that this process observes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/ipc/notifications.h"

namespace ksw::ipc {

/// One domain's notifications, as this process observes them. Any thread may call anything.
///
/// The first observation starts the one thread on which all handlers run, one after the other. It connects to the
/// domain's hub; when there is none, or when the hub goes away, it waits for one to come to the run directory.
/// After a hub went away each observed name is told once without user information, since something may have been
/// missed. After a fork the child's first observation starts a thread and a connection of its own; the parent's
/// observations tell the child nothing.
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
        std::shared_ptr<Entry> entry_;
    };

    /// The process's own; never destroyed.
    static NotificationCenter& of(Domain domain);

    /// Calls `handler` for each notification of the name from now on. `coalesce` as for a hub, for what comes while
    /// the centre is suspended. The name has 1 to limits::kSelectorMax bytes. The handler must not throw.
    [[nodiscard]] Observation observe(std::string name, Handler handler, Coalesce coalesce = nullptr);

    /// While suspended no handler is called; of each name one notification is kept, and told on going on.
    void setSuspended(bool suspended);

    explicit NotificationCenter(Domain domain);
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

private:
    class Inside;
    std::shared_ptr<Inside> inside_;
};

}  // namespace ksw::ipc

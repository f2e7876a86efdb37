// notification_center_inside.h: what a notification centre has in one process: its observations and its thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/sys_events.h"
#include "platform/ipc/hub_session.h"
#include "platform/ipc/hub_watch.h"
#include "platform/ipc/notification_center.h"

namespace ksw::ipc {

/// One observation.
struct NotificationCenter::Observation::Entry {
    // Constant after construction; the handler is taken away when the observation is over and it does not run.
    std::weak_ptr<Inside> center;
    std::uint64_t epoch = 0;  // of the process that observes
    std::string name;
    Handler handler;
    Coalesce coalesce;

    // Guarded by the centre.
    bool isOver = false;
    bool mayHaveMissed = true;  // something that was posted, and has not been told so
};

/// Any thread may call the public functions. The thread of its own runs until `stop`.
class NotificationCenter::Inside : public std::enable_shared_from_this<Inside> {
public:
    using Entry = Observation::Entry;

    explicit Inside(Domain domain) : domain_(domain) {}

    /// As NotificationCenter::observe.
    void observe(const std::shared_ptr<Entry>& entry);
    /// The entry's handler neither runs nor will, once this returns; but for the handler that calls this.
    void release(Entry& entry);
    void setSuspended(bool suspended);
    void stop();

private:
    using Lock = std::unique_lock<std::mutex>;
    struct Held {
        std::shared_ptr<Entry> entry;
        Notification notification;
    };

    bool startThread();
    bool isOwnThread() const { return std::this_thread::get_id() == threadId_; }

    // The thread's: reaching hubs.
    void run();
    bool isStopping();
    void attend();
    std::shared_ptr<HubSession> newSession();
    bool tellNames(HubSession& session);
    std::optional<std::string> firstUntold(HubSession& session);
    void serve(HubSession& session);
    void lose() noexcept;
    void awaitNews(HubSession& session);
    void awaitHub();
    void awaitBell(host::sys::Timeout timeout = std::nullopt);
    void complain(const Error& error);

    // The thread's: telling.
    void tellMissed(HubSession& session);
    void deliver(const Notification& notification);
    void tellOrHold(const std::shared_ptr<Entry>& entry, const Notification& notification);
    bool tell(Entry& entry, const Notification& notification);
    void hold(const std::shared_ptr<Entry>& entry, const Notification& notification);
    void tellHeld();

    const Domain domain_;

    // The thread's own.
    HubWatch watch_;
    std::vector<Held> held_;  // in the order in which the first of each came
    std::string lastComplaint_;

    std::mutex mutex_;  // guards all below; no handler runs and no request is made under it
    std::condition_variable changed_;
    std::vector<std::shared_ptr<Entry>> entries_;  // oldest first
    std::shared_ptr<Bell> bell_;                   // constant once the thread has started
    std::thread thread_;
    std::thread::id threadId_;
    std::string place_;                    // where the hub's socket is looked for
    std::shared_ptr<HubSession> session_;  // null while there is no hub
    const Entry* running_ = nullptr;       // whose handler runs
    bool isSuspended_ = false;
    bool isWanted_ = false;  // another attempt, now
    bool isStopping_ = false;
};

}  // namespace ksw::ipc

// notification_telling.cpp: what a centre's thread tells its observations, and what it holds back meanwhile.

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "platform/ipc/notification_center_inside.h"

namespace ksw::ipc {

/// Each observation whose name the hub has learned since it last knew it, once.
void NotificationCenter::Inside::tellMissed(HubSession& session) {
    std::vector<std::shared_ptr<Entry>> missing;
    {
        const Lock lock(mutex_);
        std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(missing),
                     [&](const std::shared_ptr<Entry>& entry) {
                         return entry->mayHaveMissed &&
                                session.standing(entry->name) == HubSession::Standing::Observed;
                     });
        for (const std::shared_ptr<Entry>& entry : missing) {
            entry->mayHaveMissed = false;
        }
    }
    for (const std::shared_ptr<Entry>& entry : missing) {
        tellOrHold(entry, {entry->name, std::nullopt});
    }
}

void NotificationCenter::Inside::deliver(const Notification& notification) {
    std::vector<std::shared_ptr<Entry>> interested;
    {
        const Lock lock(mutex_);
        std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(interested),
                     [&](const std::shared_ptr<Entry>& entry) { return entry->name == notification.name; });
    }
    for (const std::shared_ptr<Entry>& entry : interested) {
        tellOrHold(entry, notification);
    }
    tellHeld();
}

/// What comes when something is held back comes after it, also when the centre goes on just now.
void NotificationCenter::Inside::tellOrHold(const std::shared_ptr<Entry>& entry, const Notification& notification) {
    if (!held_.empty() || !tell(*entry, notification)) {
        hold(entry, notification);
    }
}

/// Runs the handler, unless the observation is over. False: the centre is suspended. What a handler has no memory
/// for is told again as missed, when something else comes.
bool NotificationCenter::Inside::tell(Entry& entry, const Notification& notification) {
    {
        const Lock lock(mutex_);
        if (isSuspended_) {
            return false;
        }
        if (entry.isOver || isStopping_) {
            return true;
        }
        running_ = &entry;
    }
    changed_.notify_all();
    bool isMissed = false;
    try {
        entry.handler(notification);
    } catch (const std::bad_alloc&) {
        isMissed = true;
    }
    {
        const Lock lock(mutex_);
        running_ = nullptr;
        entry.mayHaveMissed = entry.mayHaveMissed || isMissed;
    }
    changed_.notify_all();
    return true;
}

void NotificationCenter::Inside::hold(const std::shared_ptr<Entry>& entry, const Notification& notification) {
    const auto held = std::find_if(held_.begin(), held_.end(), [&](const Held& one) { return one.entry == entry; });
    if (held != held_.end()) {
        held->notification = coalesced(entry->coalesce, held->notification, notification);
        return;
    }
    auto over = held_.end();
    {
        const Lock lock(mutex_);
        over =
            std::stable_partition(held_.begin(), held_.end(), [](const Held& one) { return !one.entry->isOver; });
    }
    held_.erase(over, held_.end());  // not under the lock: their handlers may end here
    held_.push_back({entry, notification});
}

void NotificationCenter::Inside::tellHeld() {
    while (!held_.empty() && tell(*held_.front().entry, held_.front().notification)) {
        held_.erase(held_.begin());
    }
}

}  // namespace ksw::ipc

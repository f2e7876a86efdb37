#include "platform/ipc/notification_hub.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include <unistd.h>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/host/host_root.h"
#include "platform/host/log.h"
#include "platform/host/peer_identity.h"

namespace ksw::ipc {

namespace {

using host::mainLog;
/// A notification and the reply that brings it, written once for all who get it.
struct Told {
    Notification notification;
    Data reply;
};
/// One for all the observers that have not taken it. Null: one for which there was no memory.
using Shared = std::shared_ptr<const Told>;
using NextResponder = Responder<std::optional<std::string>, std::optional<Dictionary>>;
using PostResponder = Responder<std::int64_t>;

/// Error: it cannot be a notification.
Result<Shared> shared(Notification notification) {
    Result<Data> reply = encodeNotification(notification);
    if (!reply) {
        return reply.error();
    }
    return std::make_shared<const Told>(Told{std::move(notification), *std::move(reply)});
}

}  // namespace

class NotificationHub::Inside : public std::enable_shared_from_this<Inside> {
public:
    Inside(Domain domain, Coalesce coalesce)
        : coalesce_(std::move(coalesce)),
          owner_(host::hostRootOwner()),
          sessionUser_(domain == Domain::Session ? ::getuid() : kNoUser) {}

    /// One connection; the connection keeps it.
    class Observer {
    public:
        Observer(std::shared_ptr<Inside> hub, pid_t process) : hub_(std::move(hub)), process_(process) {
            hub_->enter(*this);
        }
        /// What it still waits for is answered, in vain, after it has left: no lock is held then.
        ~Observer() { hub_->leave(*this); }
        Observer(const Observer&) = delete;
        Observer& operator=(const Observer&) = delete;

    private:
        friend class Inside;
        const std::shared_ptr<Inside> hub_;
        const pid_t process_;
        // Guarded by the hub.
        /// What is told of each name when there is no memory to say more.
        std::vector<Shared> names_;
        /// One a name, in the order in which the names became pending; has room for all.
        std::vector<Shared> pending_;
        std::optional<NextResponder> waiting_;
    };

    void observe(Observer& observer, Responder<>& responder, const std::optional<std::string>& name);
    void next(Observer& observer, NextResponder responder);
    void postFromOutside(PostResponder& responder, Notification notification);
    void post(const std::string& name, const Shared& notification, pid_t cause, Audience audience);
    std::size_t observers() const {
        const std::lock_guard lock(mutex_);
        return observers_.size();
    }

private:
    /// A notification for whom it waits.
    struct Due {
        NextResponder responder;
        Shared notification;
    };
    /// What a post has made of an older notification, for all who have that pending.
    struct Merged {
        Shared older;
        Shared one;
    };

    void enter(Observer& observer) {
        const std::lock_guard posting(posting_);
        const std::lock_guard lock(mutex_);
        due_.reserve(observers_.size() + 1);
        observers_.push_back(&observer);
    }
    void leave(Observer& observer) {
        const std::lock_guard lock(mutex_);
        std::erase(observers_, &observer);
    }
    bool mayPost(Uid uid) const { return uid != kNoUser && (uid == 0 || uid == owner_ || uid == sessionUser_); }
    static const Shared* find(const std::vector<Shared>& list, const std::string& name);
    bool enter(Observer& observer, Shared plain);
    void collectDue(const std::string& name, const Shared& notification, pid_t cause, Audience audience);
    void collectDueOf(Observer& observer, const std::string& name, const Shared& notification, Merged& merged);
    void holdFor(Observer& observer, const Shared& plain, const Shared& notification, Merged& merged) const;

    // Constant after construction.
    const Coalesce coalesce_;
    const Uid owner_;
    const Uid sessionUser_;

    /// Held by who posts, so that all observers are told in one order; guards what is due. Taken before the other.
    std::mutex posting_;
    std::vector<Due> due_;  // has room for one an observer, so that a post needs no memory

    mutable std::mutex mutex_;  // guards all below, and what the observers have; no answer is given under it
    std::vector<Observer*> observers_;  // oldest first
};

void NotificationHub::Inside::observe(Observer& observer, Responder<>& responder,
                                      const std::optional<std::string>& name) {
    Result<Shared> plain = shared({name.value_or(std::string()), std::nullopt});
    if (!plain) {
        responder.refuse(Refusal::ArgumentsInvalid, plain.error().localizedDescription());
        return;
    }
    if (enter(observer, *std::move(plain))) {
        responder.answer();
    } else {
        responder.refuse(kTooManyNamesCode,
                         format("a connection observes at most %ld names", limits::kNotificationNamesMax));
    }
}

/// False: it observes as many as it may.
bool NotificationHub::Inside::enter(Observer& observer, Shared plain) {
    const std::lock_guard lock(mutex_);
    std::vector<Shared>& names = observer.names_;
    if (find(names, plain->notification.name) != nullptr) {
        return true;
    }
    if (names.size() >= limits::kNotificationNamesMax) {
        return false;
    }
    observer.pending_.reserve(names.size() + 1);
    names.push_back(std::move(plain));
    return true;
}

const Shared* NotificationHub::Inside::find(const std::vector<Shared>& list, const std::string& name) {
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const Shared& one) { return one->notification.name == name; });
    return found == list.end() ? nullptr : &*found;
}

void NotificationHub::Inside::next(Observer& observer, NextResponder responder) {
    Shared first;
    {
        const std::lock_guard lock(mutex_);
        if (!observer.pending_.empty()) {
            first = std::move(observer.pending_.front());
            observer.pending_.erase(observer.pending_.begin());
        } else if (!observer.waiting_) {
            observer.waiting_.emplace(std::move(responder));
            return;
        }
    }
    if (first != nullptr) {
        responder.answerEncoded(first->reply);
    } else {
        responder.refuse(Refusal::ArgumentsInvalid, "a request for the next notification waits already");
    }
}

void NotificationHub::Inside::postFromOutside(PostResponder& responder, Notification notification) {
    if (!mayPost(responder.peer().uid())) {
        responder.answer(KSWErrorPermissionDenied);
        return;
    }
    const Result<Shared> told = shared(std::move(notification));
    if (!told) {
        responder.refuse(Refusal::ArgumentsInvalid, told.error().localizedDescription());
        return;
    }
    post((*told)->notification.name, *told, responder.peer().pid(), Audience::Everybody);
    responder.answer(KSWErrorNone);
}

void NotificationHub::Inside::post(const std::string& name, const Shared& notification, pid_t cause,
                                   Audience audience) {
    const std::lock_guard posting(posting_);
    collectDue(name, notification, cause, audience);
    for (Due& due : due_) {
        due.responder.answerEncoded(due.notification->reply);
    }
    due_.clear();
}

void NotificationHub::Inside::collectDue(const std::string& name, const Shared& notification, pid_t cause,
                                         Audience audience) {
    Merged merged;
    const std::lock_guard lock(mutex_);
    for (const Audience part : {Audience::Others, Audience::Cause}) {
        if (audience != Audience::Everybody && audience != part) {
            continue;
        }
        for (Observer* observer : observers_) {
            if ((observer->process_ == cause) == (part == Audience::Cause)) {
                collectDueOf(*observer, name, notification, merged);
            }
        }
    }
}

void NotificationHub::Inside::collectDueOf(Observer& observer, const std::string& name, const Shared& notification,
                                           Merged& merged) {
    const Shared* plain = find(observer.names_, name);
    if (plain == nullptr) {
        return;
    }
    const Shared& told = notification == nullptr ? *plain : notification;
    if (observer.waiting_) {
        due_.push_back({std::move(*observer.waiting_), told});
        observer.waiting_.reset();
    } else {
        holdFor(observer, *plain, told, merged);
    }
}

void NotificationHub::Inside::holdFor(Observer& observer, const Shared& plain, const Shared& notification,
                                      Merged& merged) const {
    std::vector<Shared>& pending = observer.pending_;
    const auto older = std::find_if(pending.begin(), pending.end(), [&](const Shared& one) {
        return one->notification.name == notification->notification.name;
    });
    if (older == pending.end()) {
        pending.push_back(notification);
    } else if (coalesce_ == nullptr || notification == plain) {
        *older = notification;
    } else if (*older != plain) {  // which says all that there is to say
        try {
            if (merged.older != *older) {
                const Result<Shared> one =
                    shared(coalesced(coalesce_, (*older)->notification, notification->notification));
                merged = {*older, one ? *one : notification};
            }
            *older = merged.one;
        } catch (const std::bad_alloc&) {
            *older = plain;
        }
    }
}

NotificationHub::NotificationHub(Domain domain, Coalesce coalesce)
    : inside_(std::make_shared<Inside>(domain, std::move(coalesce))) {}

NotificationHub::~NotificationHub() = default;

Dispatcher NotificationHub::service() {
    const auto observerOf = [hub = inside_](const RequestContext& context) -> Inside::Observer& {
        return context.keep<Inside::Observer>(
            [&] { return std::make_shared<Inside::Observer>(hub, context.peer.pid()); });
    };
    Dispatcher dispatcher;
    dispatcher.on(kObserveNotification,
                  [hub = inside_, observerOf](const RequestContext& context, Responder<> responder,
                                              const std::optional<std::string>& name) {
                      hub->observe(observerOf(context), responder, name);
                  });
    dispatcher.on(kNextNotification,
                  [hub = inside_, observerOf](const RequestContext& context, NextResponder responder) {
                      hub->next(observerOf(context), std::move(responder));
                  });
    dispatcher.on(
        kPostNotification, [hub = inside_](const RequestContext&, PostResponder responder,
                                           std::optional<std::string> name, std::optional<Dictionary> userInfo) {
            hub->postFromOutside(responder, {std::move(name).value_or(std::string()), std::move(userInfo)});
        });
    return dispatcher;
}

void NotificationHub::post(const Notification& notification, pid_t cause, Audience audience) try {
    const Result<Shared> told = shared(notification);
    if (!told) {
        mainLog.error("notification \"%{public}@\" dropped: %{public}@", notification.name,
                      told.error().localizedDescription());
        return;
    }
    inside_->post(notification.name, *told, cause, audience);
} catch (const std::bad_alloc&) {
    inside_->post(notification.name, nullptr, cause, audience);
}

std::size_t NotificationHub::observers() const {
    return inside_->observers();
}

}  // namespace ksw::ipc

#include "platform/ipc/notification_hub.h"

#include <algorithm>
#include <mutex>
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
/// One for all the observers that have not taken it.
using Shared = std::shared_ptr<const Notification>;
using NextResponder = Responder<std::optional<std::string>, std::optional<Dictionary>>;
using PostResponder = Responder<std::int64_t>;

void tell(NextResponder& responder, const Notification& notification) {
    responder.answer(notification.name, notification.userInfo);
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
        explicit Observer(std::shared_ptr<Inside> hub) : hub_(std::move(hub)) { hub_->enter(*this); }
        /// What it still waits for is answered, in vain, after it has left: no lock is held then.
        ~Observer() { hub_->leave(*this); }
        Observer(const Observer&) = delete;
        Observer& operator=(const Observer&) = delete;

    private:
        friend class Inside;
        const std::shared_ptr<Inside> hub_;
        // Guarded by the hub.
        std::vector<std::string> names_;
        std::vector<Shared> pending_;  // one a name, in the order in which the names became pending
        std::optional<NextResponder> waiting_;
    };

    void observe(Observer& observer, Responder<>& responder, const std::optional<std::string>& name);
    void next(Observer& observer, NextResponder responder);
    void postFromOutside(PostResponder& responder, const Notification& notification);
    void post(const Shared& notification);
    std::size_t observers() const {
        const std::lock_guard lock(mutex_);
        return observers_.size();
    }

private:
    void enter(Observer& observer) {
        const std::lock_guard lock(mutex_);
        observers_.push_back(&observer);
    }
    void leave(Observer& observer) {
        const std::lock_guard lock(mutex_);
        std::erase(observers_, &observer);
    }
    bool mayPost(Uid uid) const { return uid != kNoUser && (uid == 0 || uid == owner_ || uid == sessionUser_); }
    void holdFor(Observer& observer, const Shared& notification) const;

    // Constant after construction.
    const Coalesce coalesce_;
    const Uid owner_;
    const Uid sessionUser_;

    mutable std::mutex mutex_;  // guards all below, and what the observers have; no answer is given under it
    std::vector<Observer*> observers_;  // oldest first
};

void NotificationHub::Inside::observe(Observer& observer, Responder<>& responder,
                                      const std::optional<std::string>& name) {
    if (Status status = checkNotificationName(name.value_or(std::string())); !status) {
        responder.refuse(Refusal::ArgumentsInvalid, status.error().localizedDescription());
        return;
    }
    bool isObserved = true;
    {
        const std::lock_guard lock(mutex_);
        std::vector<std::string>& names = observer.names_;
        if (std::find(names.begin(), names.end(), *name) == names.end()) {
            isObserved = names.size() < limits::kNotificationNamesMax;
            if (isObserved) {
                names.push_back(*name);
            }
        }
    }
    if (isObserved) {
        responder.answer();
    } else {
        responder.refuse(Refusal::Overloaded,
                         format("a connection observes at most %ld names", limits::kNotificationNamesMax));
    }
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
        tell(responder, *first);
    } else {
        responder.refuse(Refusal::ArgumentsInvalid, "a request for the next notification waits already");
    }
}

void NotificationHub::Inside::postFromOutside(PostResponder& responder, const Notification& notification) {
    if (!mayPost(responder.peer().uid())) {
        responder.answer(KSWErrorPermissionDenied);
        return;
    }
    if (Status status = checkNotification(notification); !status) {
        responder.refuse(Refusal::ArgumentsInvalid, status.error().localizedDescription());
        return;
    }
    post(std::make_shared<const Notification>(notification));
    responder.answer(KSWErrorNone);
}

void NotificationHub::Inside::post(const Shared& notification) {
    std::vector<NextResponder> waiting;
    {
        const std::lock_guard lock(mutex_);
        waiting.reserve(observers_.size());
        for (Observer* observer : observers_) {
            const std::vector<std::string>& names = observer->names_;
            if (std::find(names.begin(), names.end(), notification->name) == names.end()) {
                continue;
            }
            if (observer->waiting_) {
                waiting.push_back(std::move(*observer->waiting_));
                observer->waiting_.reset();
            } else {
                holdFor(*observer, notification);
            }
        }
    }
    for (NextResponder& responder : waiting) {
        tell(responder, *notification);
    }
}

void NotificationHub::Inside::holdFor(Observer& observer, const Shared& notification) const {
    std::vector<Shared>& pending = observer.pending_;
    const auto older = std::find_if(pending.begin(), pending.end(),
                                    [&](const Shared& one) { return one->name == notification->name; });
    if (older == pending.end()) {
        pending.push_back(notification);
    } else if (coalesce_ == nullptr) {
        *older = notification;
    } else {
        *older = std::make_shared<const Notification>(coalesced(coalesce_, **older, *notification));
    }
}

NotificationHub::NotificationHub(Domain domain, Coalesce coalesce)
    : inside_(std::make_shared<Inside>(domain, std::move(coalesce))) {}

NotificationHub::~NotificationHub() = default;

Dispatcher NotificationHub::service() {
    const auto observerOf = [hub = inside_](const RequestContext& context) -> Inside::Observer& {
        return context.keep<Inside::Observer>([&] { return std::make_shared<Inside::Observer>(hub); });
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

void NotificationHub::post(const Notification& notification) {
    if (Status status = checkNotification(notification); !status) {
        mainLog.error("notification \"%{public}@\" dropped: %{public}@", notification.name,
                      status.error().localizedDescription());
        return;
    }
    inside_->post(std::make_shared<const Notification>(notification));
}

std::size_t NotificationHub::observers() const {
    return inside_->observers();
}

}  // namespace ksw::ipc

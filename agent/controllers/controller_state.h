// controller_state.h: what the controllers of login items and of background items have in common.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <kestrelwood/main_queue.h>
#include <kestrelwood/values/notification.h>

#include "platform/base/guarded.h"
#include "platform/base/text.h"
#include "platform/host/concurrent_queue.h"
#include "platform/ipc/notification_center.h"

namespace ksw::agent {

/// A notification in the log.
struct NotificationText {
    const Notification& notification;
    std::string description() const {
        return notification.userInfo ? format("%@ %@", notification.name, Value(*notification.userInfo))
                                     : notification.name;
    }
};

/// A delegate in the log: it has no text of its own.
struct DelegateText {
    std::string_view className;
    const void* delegate;
    std::string description() const { return format("<%@: %p>", className, delegate); }
};

/// What outlives a controller for as long as something is under way for it: replies and notifications hold this, so
/// that the controller goes when its last owner lets go of it, and nobody waits for that.
template <class Controller>
struct ControllerState {
    using Items = typename Controller::Items;
    using Delegate = typename Controller::Delegate;

    ControllerState(std::string_view queueName, const std::shared_ptr<Delegate>& first)
        : weakDelegate(first), internalQueue(queueName) {}

    std::shared_ptr<Delegate> currentDelegate() { return weakDelegate.lock()->lock(); }
    Items items() {
        return internalQueue.sync([this] { return internalItems; });
    }
    /// Calls `tell(delegate, controller)` on the main queue, unless one of them is gone by then.
    template <class Tell>
    void tellOnMainQueue(Tell tell) {
        MainQueue::async([owner = owner, tell] {
            const std::shared_ptr<Controller> controller = owner.lock();
            const std::shared_ptr<Delegate> listener = controller == nullptr ? nullptr : controller->delegate();
            if (listener != nullptr) {
                tell(*listener, controller);
            }
        });
    }

    Guarded<std::weak_ptr<Delegate>> weakDelegate;
    host::ConcurrentQueue internalQueue;
    Items internalItems;                // guarded by the queue
    std::weak_ptr<Controller> owner{};  // constant once the controller is made
    /// Last, so that no notification finds the rest gone.
    ipc::NotificationCenter::Observation changes{};
};

/// Has the state's `handle` called for each announcement of changed items, as long as the state lives.
template <class State>
ipc::NotificationCenter::Observation observeChanges(std::string_view name, const std::shared_ptr<State>& state) {
    return ipc::NotificationCenter::of(ipc::Domain::Session)
        .observe(std::string(name), [observer = std::weak_ptr<State>(state)](const Notification& notification) {
            if (const std::shared_ptr<State> observing = observer.lock()) {
                observing->handle(notification);
            }
        });
}

}  // namespace ksw::agent

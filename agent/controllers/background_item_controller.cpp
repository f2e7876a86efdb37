#include <kestrelwood/KSWBackgroundItemController.h>

#include <kestrelwood/KSWAgentConnection.h>

#include "agent/controllers/controller_state.h"
#include "platform/host/log.h"

using ksw::host::mainLog;

struct KSWBackgroundItemController::State : ksw::agent::ControllerState<KSWBackgroundItemController>,
                                            std::enable_shared_from_this<State> {
    explicit State(const std::shared_ptr<Delegate>& first)
        : ControllerState("KSWBackgroundTaskController", first) {}

    void fetchBackgroundTasks();
    void _setBackgroundItems(const Items& items);
    void _notifyDidChangeItems();
    void handle(const ksw::Notification& notification);

    bool hasItems = false;  // guarded by the queue: whether an answer has come
};

KSWBackgroundItemControllerDelegate::~KSWBackgroundItemControllerDelegate() = default;

void KSWBackgroundItemControllerDelegate::backgroundItemControllerDidChangeItems(
    const std::shared_ptr<KSWBackgroundItemController>& /*controller*/) {}

KSWBackgroundItemController::KSWBackgroundItemController(std::shared_ptr<State> state) : state_(std::move(state)) {}

KSWBackgroundItemController::~KSWBackgroundItemController() = default;

std::shared_ptr<KSWBackgroundItemController> KSWBackgroundItemController::initWithDelegate(
    const std::shared_ptr<Delegate>& delegate) {
    const auto state = std::make_shared<State>(delegate);
    std::shared_ptr<KSWBackgroundItemController> controller(new KSWBackgroundItemController(state));
    state->owner = controller;
    mainLog.debug("KSWBackgroundItemController fetching items.");
    state->fetchBackgroundTasks();
    // The answer may be there already, and then it stays.
    state->internalQueue.barrierAsync([state] {
        if (!state->hasItems) {
            state->internalItems = {};
        }
    });
    state->changes = ksw::agent::observeChanges(kKSWBackgroundItemsChangeNotification, state);
    return controller;
}

std::shared_ptr<KSWBackgroundItemControllerDelegate> KSWBackgroundItemController::delegate() const {
    return state_->currentDelegate();
}

void KSWBackgroundItemController::setDelegate(const std::shared_ptr<Delegate>& delegate) {
    *state_->weakDelegate.lock() = delegate;
}

KSWBackgroundItemController::Items KSWBackgroundItemController::items() const {
    return state_->items();
}

void KSWBackgroundItemController::setUserElection(std::int64_t election,
                                                  const std::shared_ptr<const KSWBackgroundItem>& item,
                                                  Completion completion) {
    KSWAgentConnection::sharedInstance().setUserElection(
        election, item, [election, completion = std::move(completion)](const std::optional<ksw::Error>& error) {
            if (error) {
                mainLog.error("Failed to set user election: %lu with error: %{public}@", election, *error);
            }
            if (completion) {
                completion(!error);
            }
        });
}

void KSWBackgroundItemController::setUserElection(std::int64_t election, const std::optional<ksw::URL>& url,
                                                  Completion completion) {
    KSWAgentConnection::sharedInstance().setUserElection(
        election, url, [election, url, completion = std::move(completion)](const std::optional<ksw::Error>& error) {
            if (error) {
                mainLog.error("Failed to set user election: %lu for URL %@: %{public}@", election, url, *error);
            }
            if (completion) {
                completion(!error);
            }
        });
}

void KSWBackgroundItemController::handleBackgroundItemsChangeNotification(const ksw::Notification& notification) {
    state_->handle(notification);
}

void KSWBackgroundItemController::State::handle(const ksw::Notification& notification) {
    mainLog.debug("KSWBackgroundItemController recieved change notification: %{public}@",
                  ksw::agent::NotificationText{notification});
    if (notification.name == kKSWBackgroundItemsChangeNotification) {
        fetchBackgroundTasks();
    }
}

void KSWBackgroundItemController::State::fetchBackgroundTasks() {
    KSWAgentConnection::sharedInstance().getBackgroundItemsWithReply(
        [fetching = weak_from_this()](const KSWAgentConnection::BackgroundItems& array,
                                      const std::optional<ksw::Error>& error) {
            const std::shared_ptr<State> state = fetching.lock();
            if (state == nullptr) {
                return;
            }
            if (!array) {
                // Programs that read the log look for this text, whichever items they were.
                mainLog.error("Failed to get login items with error: %{public}@", error);
                return;
            }
            state->internalQueue.barrierAsync(
                [state, items = Items(*array)] { state->_setBackgroundItems(items); });
        });
}

void KSWBackgroundItemController::State::_setBackgroundItems(const Items& items) {
    internalItems = items;
    hasItems = true;
    mainLog.debug("KSWBackgroundItemController items set.");
    _notifyDidChangeItems();
}

void KSWBackgroundItemController::State::_notifyDidChangeItems() {
    tellOnMainQueue([](Delegate& delegate, const std::shared_ptr<KSWBackgroundItemController>& controller) {
        if (delegate.wantsBackgroundItemControllerDidChangeItems()) {
            mainLog.debug("KSWBackgroundItemController notifying delegate: %{public}@",
                          ksw::agent::DelegateText{"KSWBackgroundItemControllerDelegate", &delegate});
            delegate.backgroundItemControllerDidChangeItems(controller);
        }
    });
}

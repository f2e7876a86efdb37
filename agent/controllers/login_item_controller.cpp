#include <kestrelwood/KSWLoginItemController.h>

#include <kestrelwood/KSWAgentConnection.h>

#include "agent/controllers/controller_state.h"
#include "platform/host/log.h"

using ksw::host::mainLog;

struct KSWLoginItemController::State : ksw::agent::ControllerState<KSWLoginItemController>,
                                       std::enable_shared_from_this<State> {
    State(std::uint64_t mask, const std::shared_ptr<Delegate>& first)
        : ControllerState("KSWLoginItemController", first), typeMask(mask) {}

    void fetchLoginItems();
    void _setLoginItems(const Items& items);
    void _notifyDidChangeItems();
    void handle(const ksw::Notification& notification);

    const std::uint64_t typeMask;
};

KSWLoginItemControllerDelegate::~KSWLoginItemControllerDelegate() = default;

void KSWLoginItemControllerDelegate::loginItemControllerDidChangeItems(
    const std::shared_ptr<KSWLoginItemController>& /*controller*/) {}

KSWLoginItemController::KSWLoginItemController(std::shared_ptr<State> state) : state_(std::move(state)) {}

KSWLoginItemController::~KSWLoginItemController() = default;

std::shared_ptr<KSWLoginItemController> KSWLoginItemController::initWithTypeMask(
    std::uint64_t typeMask, const std::shared_ptr<Delegate>& delegate) {
    const auto state = std::make_shared<State>(typeMask, delegate);
    std::shared_ptr<KSWLoginItemController> controller(new KSWLoginItemController(state));
    state->owner = controller;
    mainLog.debug("KSWLoginItemController fetching items.");
    state->fetchLoginItems();
    state->changes = ksw::agent::observeChanges(kKSWBackgroundItemsChangeNotification, state);
    return controller;
}

std::shared_ptr<KSWLoginItemControllerDelegate> KSWLoginItemController::delegate() const {
    return state_->currentDelegate();
}

std::uint64_t KSWLoginItemController::typeMask() const {
    return state_->typeMask;
}

KSWLoginItemController::Items KSWLoginItemController::items() const {
    return state_->items();
}

namespace {

/// Of an addition and of a removal: programs that read the log look for this text after both.
void logFailure(const std::optional<ksw::Error>& error) {
    if (error) {
        mainLog.error("Failed to add login item with error: %{public}@", *error);
    }
}

}  // namespace

void KSWLoginItemController::addLoginItem(const std::shared_ptr<KSWLoginItem>& item) {
    KSWAgentConnection::sharedInstance().addLoginItem(item, logFailure);
}

void KSWLoginItemController::removeLoginItem(const std::shared_ptr<KSWLoginItem>& item) {
    KSWAgentConnection::sharedInstance().removeLoginItem(item, logFailure);
}

void KSWLoginItemController::handleLoginItemsChangeNotification(const ksw::Notification& notification) {
    state_->handle(notification);
}

void KSWLoginItemController::State::handle(const ksw::Notification& notification) {
    mainLog.debug("KSWLoginItemController recieved change notification: %{public}@",
                  ksw::agent::NotificationText{notification});
    if (notification.name == kKSWBackgroundItemsChangeNotification) {
        fetchLoginItems();
    }
}

void KSWLoginItemController::State::fetchLoginItems() {
    KSWAgentConnection::sharedInstance().getLoginItemsWithTypeMask(
        typeMask, [this](const KSWAgentConnection::LoginItems& array, const std::optional<ksw::Error>& error) {
            if (!array) {
                mainLog.error("Failed to get login items with error: %{public}@", error);
                return;
            }
            // The members are compared here, so that nobody who reads waits for it.
            internalQueue.barrierAsync(
                [state = shared_from_this(), items = Items(*array)] { state->_setLoginItems(items); });
        });
}

void KSWLoginItemController::State::_setLoginItems(const Items& items) {
    internalItems = items;
    mainLog.debug("KSWLoginItemController items set.");
    _notifyDidChangeItems();
}

void KSWLoginItemController::State::_notifyDidChangeItems() {
    tellOnMainQueue([](Delegate& delegate, const std::shared_ptr<KSWLoginItemController>& controller) {
        if (delegate.wantsLoginItemControllerDidChangeItems()) {
            mainLog.debug("KSWLoginItemController notifying delegate: %{public}@",
                          ksw::agent::DelegateText{"KSWLoginItemControllerDelegate", &delegate});
            delegate.loginItemControllerDidChangeItems(controller);
        }
    });
}
